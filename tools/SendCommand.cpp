// SPDX-License-Identifier: MIT
/* `tetherctl send CMD [ARG...]`: any command number with typed arguments,
 * for experts; and `tetherctl codes`, the table of status codes. */
#include <string>
#include <vector>

#include "Client.h"
#include "tools/Commands.h"
#include "tools/Failure.h"
#include "tools/StatusCodes.h"
#include "tools/TypedSend.h"

namespace tetherctl {

namespace {

/* The reply that --reply asks for, read after Send's own integer reply. */
void readReply(Client& client, const std::string& kind, Output& out) {
    Json& data = out.data();
    int status = 0;
    if (kind == "int") {
        int value = 0;
        status = client.Read(value);
        if (status == 0) {
            data["reply"] = value;
            out.line("reply: " + std::to_string(value));
        }
    } else if (kind == "text") {
        char* text = nullptr;
        status = client.Read(text);
        if (status == 0) {
            data["reply"] = text;
            out.line(std::string("reply: ") + text);
        }
    } else {
        std::vector<std::string> fields;
        status = client.Read(fields);
        if (status == 0) {
            data["reply"] = Json::Array{};
            out.line("reply: " + std::to_string(fields.size()) + " field" + (fields.size() == 1 ? "" : "s"));
            for (std::size_t i = 0; i < fields.size(); ++i) {
                data["reply"].push(fields[i]);
                out.line("  " + std::to_string(i + 1) + ": " + fields[i]);
            }
        }
    }
    if (status != 0) throw Failure("reading the " + kind + " reply", status);
}

}  // namespace

void runSend(const CommonOptions& common, const SendOptions& options, Output& out) {
    std::vector<TypedArgument> arguments;
    for (const std::string& given : options.arguments) arguments.push_back(parseTypedArgument(given));
    checkArgumentShape(arguments);

    ServerSession session(common);
    session.connect();
    if (options.session) session.lock();
    Client& client = session.client();
    const int result = sendTyped(client, options.command, arguments);
    const int status = client.GetClientStatus();

    Json& data = out.data();
    data["command"] = options.command;
    data["result"] = result;
    data["status"] = status;
    const std::string label = "command " + std::to_string(options.command);
    if (status < 0 || status == 1) throw Failure(label, status, failedSendReading(options.command, status));
    std::string line = label + ": result " + std::to_string(result);
    if (result < 0) line += " (" + describeServerReply(result) + ")";
    out.line(line);
    if (!options.reply.empty()) readReply(client, options.reply, out);
    if (options.session) session.unlock();
    session.disconnect();
}

void runCodes(Output& out) {
    const auto list = [&out](const char* title, const char* key, std::span<const StatusCode> table,
                             std::string (*line)(int)) {
        Json& codes = out.data()[key];
        codes = Json::Array{};
        out.line(title);
        for (const StatusCode& entry : table) {
            Json code;
            code["code"] = entry.number;
            code["meaning"] = entry.meaning;
            codes.push(code);
            out.line("  " + line(entry.number));
        }
    };
    list("Status codes of libtetherhost_client:", "status", statusCodes(), statusLine);
    list("Negative integer replies of the tetherhost simulator:", "serverReplies", serverReplies(), serverReplyLine);
}

}  // namespace tetherctl
