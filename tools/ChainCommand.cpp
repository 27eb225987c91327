// SPDX-License-Identifier: MIT
/* `tetherctl chain`: reset the TAPs, read every device's IDCODE with one
 * data-register scan, and show each IDCODE with its fields, together with
 * the name and instruction length the server reports for the device. */
#include <climits>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/ChainScan.h"
#include "Client.h"
#include "tools/Commands.h"
#include "tools/Failure.h"
#include "tools/ReplyNumbers.h"

namespace tetherctl {

namespace {

struct Reported {
    std::string name;
    std::string irLength;
};

/* The server's own description of the chain, from TDI to TDO: one
 * "name,irLength,idcode" field per device. */
std::vector<Reported> describeChain(ServerSession& session) {
    Client& client = session.client();
    const int count = client.Send(command::jtagInterface, sub::describeChain);
    session.check(count, "asking for the chain's description (command 44, sub-command 7)");
    std::vector<std::string> fields;
    const int status = client.Read(fields);
    if (status != 0) throw Failure("reading the chain's description", status);
    std::vector<Reported> devices;
    for (const std::string& field : fields) {
        std::istringstream parts(field);
        Reported device;
        std::getline(parts, device.name, ',');
        std::getline(parts, device.irLength, ',');
        devices.push_back(device);
    }
    return devices;
}

/* The IR length the description gives the device at `position`: a whole
 * decimal number from 1 up; any other text is reported, not narrowed. */
int irLengthOf(const Reported& device, std::size_t position) {
    if (const auto bits = replyInteger(device.irLength, 1, INT_MAX)) return *bits;
    throw std::runtime_error("the server's chain description gives device " + std::to_string(position) +
                             " the IR length '" + device.irLength + "', not a number from 1 to " +
                             std::to_string(INT_MAX));
}

std::string hexField(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

}  // namespace

void runChain(const CommonOptions& common, Output& out) {
    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    session.check(client.Send(command::jtagInterface, sub::resetTaps),
                  "resetting the TAPs (command 44, sub-command 3)");

    // After the reset every device's data register is its IDCODE (or
    // BYPASS); shifting ones in pushes them all out.
    const Bytes ones(chainScanBits / 8, 0xFF);
    const Bytes expected(ones.size(), 0);
    const int mismatches =
        client.Send(command::jtagInterface, sub::jtagShift, 0, chainScanBits, 1, 0, ones.data(), expected.data());
    session.check(mismatches, "scanning the chain (command 44, sub-command 12)");
    const Bytes tdo = collectReturnedData(client, ones.size());
    const std::vector<ChainDevice> devices = decodeChain(tdo, chainScanBits);
    const std::vector<Reported> reported = describeChain(session);
    session.end();
    // The description is the server's word; it is shown only when it counts
    // the same devices as the scan, and then only when every IR length in it
    // is a number.
    std::vector<int> irLengths;
    if (reported.size() == devices.size())
        for (std::size_t position = 0; position < reported.size(); ++position)
            irLengths.push_back(irLengthOf(reported[position], position));

    Json& data = out.data();
    data["command"] = "chain";
    data["count"] = devices.size();
    data["devices"] = Json::Array{};
    out.line(std::to_string(devices.size()) + " device" + (devices.size() == 1 ? "" : "s") +
             " on the chain, position 0 next to the cable's TDI:");
    for (std::size_t position = 0; position < devices.size(); ++position) {
        Json entry;
        entry["position"] = position;
        std::string line = "  " + std::to_string(position) + ": ";
        if (const auto& idcode = devices[position].idcode) {
            const IdcodeFields fields = idcodeFields(*idcode);
            entry["idcode"] = *idcode;
            entry["version"] = fields.version;
            entry["part"] = fields.part;
            entry["manufacturer"] = fields.manufacturer;
            line += "IDCODE " + idcodeText(*idcode) + "  version " + hexField(fields.version, 1) + "  part " +
                    hexField(fields.part, 4) + "  manufacturer " + hexField(fields.manufacturer, 3);
        } else {
            entry["idcode"] = Json();
            line += "no IDCODE (BYPASS after reset)";
        }
        if (!irLengths.empty()) {
            entry["name"] = reported[position].name;
            entry["irLength"] = irLengths[position];
            line += "  " + reported[position].name + ", IR " + std::to_string(irLengths[position]) + " bits";
        }
        data["devices"].push(entry);
        out.line(line);
    }
}

}  // namespace tetherctl
