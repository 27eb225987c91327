// SPDX-License-Identifier: MIT
/* tetherhost._tetherhost: the session layer (<tetherhost/session.hpp>) and
 * the SVF player bound for Python with pybind11. Every call that talks to
 * the server lets go of the interpreter lock while it waits, so other Python
 * threads run meanwhile. Data arguments are any contiguous bytes-like object
 * (bytes, bytearray, memoryview); data come back as bytes. */
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <climits>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "SvfPlayer.h"
#include <tetherhost/session.hpp>

namespace py = pybind11;
using tetherhost::Bytes;
using tetherhost::Session;

namespace {

/* A bytes-like argument, held (and so pinned) for the length of a call. */
class Block {
public:
    explicit Block(const py::buffer& given) : info(given.request()) {
        if (info.itemsize != 1 || (info.ndim > 1) || (info.ndim == 1 && info.strides[0] != 1))
            throw py::type_error("data must be contiguous bytes (bytes, bytearray, memoryview of bytes)");
    }
    tetherhost::ByteView view() const { return tetherhost::ByteView(info.ptr, static_cast<std::size_t>(info.size)); }
    Bytes copy() const {
        const auto* start = static_cast<const std::uint8_t*>(info.ptr);
        return Bytes(start, start + info.size);
    }

private:
    py::buffer_info info;
};

py::bytes toBytes(const Bytes& data) { return py::bytes(reinterpret_cast<const char*>(data.data()), data.size()); }

/* A Python argument of a call by number: an int, a str or bytes. */
tetherhost::Argument toArgument(const py::handle& given, std::size_t position) {
    const std::string where = "argument " + std::to_string(position + 1);
    if (PyBool_Check(given.ptr())) throw tetherhost::ArgumentError(where + " is a bool: pass an int");
    if (py::isinstance<py::int_>(given)) {
        const long long value = given.cast<long long>();
        if (value < INT_MIN || value > INT_MAX)
            throw py::value_error(where + " is " + std::to_string(value) + ", which an int does not hold");
        return static_cast<int>(value);
    }
    if (py::isinstance<py::str>(given)) return given.cast<std::string>();
    if (PyObject_CheckBuffer(given.ptr())) return Block(py::reinterpret_borrow<py::buffer>(given)).copy();
    throw tetherhost::ArgumentError(where + " is a " + std::string(py::str(given.get_type().attr("__name__"))) +
                                    ": pass an int, a str or bytes");
}

std::vector<tetherhost::Argument> toArguments(const py::args& given) {
    std::vector<tetherhost::Argument> arguments;
    arguments.reserve(given.size());
    for (std::size_t i = 0; i < given.size(); ++i) arguments.push_back(toArgument(given[i], i));
    return arguments;
}

/* A scan by register, plain or compared. */
py::object scan(Session& session, bool instruction, int bits, const py::buffer& tdi,
                const std::optional<py::buffer>& expected, const std::optional<py::buffer>& mask) {
    const Block data(tdi);
    if (expected.has_value() != mask.has_value()) throw py::value_error("a compared scan takes both expected and mask");
    if (!expected) {
        Bytes tdo;
        {
            py::gil_scoped_release released;
            tdo = instruction ? session.scanIr(bits, data.view()) : session.scanDr(bits, data.view());
        }
        return toBytes(tdo);
    }
    const Block expectedData(*expected);
    const Block maskData(*mask);
    tetherhost::Checked checked;
    {
        py::gil_scoped_release released;
        checked = instruction ? session.scanIr(bits, data.view(), expectedData.view(), maskData.view())
                              : session.scanDr(bits, data.view(), expectedData.view(), maskData.view());
    }
    return py::cast(checked);
}

const char* outcomeName(tetherhost::svf::Outcome outcome) {
    switch (outcome) {
    case tetherhost::svf::Outcome::Passed: return "passed";
    case tetherhost::svf::Outcome::Mismatched: return "mismatched";
    case tetherhost::svf::Outcome::BadFile: return "bad file";
    case tetherhost::svf::Outcome::CableFailed: return "cable failed";
    case tetherhost::svf::Outcome::Stopped: return "stopped";
    }
    return "";
}

std::string defaultServerDirectory() {
    return py::module_::import("tetherhost._paths").attr("SERVER_DIRECTORY").cast<std::string>();
}

}  // namespace

PYBIND11_MODULE(_tetherhost, module) {
    module.doc() = "The native part of the tetherhost module: the typed session layer over libtetherhost_client.";

    static py::handle errorType = PyErr_NewExceptionWithDoc(
        "tetherhost.Error",
        "A failed call: a status code of the library, or a negative integer reply of the server.\n\n"
        "Attributes: status (int), text (its meaning), from_server (bool: a reply of the server rather "
        "than a status of the library), operation (what the session was doing), message (the identifier "
        "of the last message the library posted, when the session keeps a log; otherwise '').",
        PyExc_Exception, nullptr);
    module.attr("Error") = errorType;
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) std::rethrow_exception(thrown);
        } catch (const tetherhost::Error& error) {
            py::object instance = py::reinterpret_borrow<py::object>(errorType)(error.what());
            instance.attr("status") = error.status();
            instance.attr("text") = error.text();
            instance.attr("from_server") = error.fromServer();
            instance.attr("operation") = error.operation();
            instance.attr("message") = error.message();
            PyErr_SetObject(errorType.ptr(), instance.ptr());
        } catch (const tetherhost::ArgumentError& error) {
            PyErr_SetString(PyExc_TypeError, error.what());
        } catch (const tetherhost::SessionClosed& error) {
            PyErr_SetString(PyExc_ValueError, error.what());
        }
    });

    module.attr("FORKED_COPY_EXIT_STATUS") = tetherhost::forkedCopyExitStatus;
    module.def(
        "describe", [](int status) { return std::string(tetherhost::describe(status)); }, py::arg("status"),
        "The meaning of any status code of the library.");
    module.def(
        "describe_reply", [](int reply) { return std::string(tetherhost::describeReply(reply)); }, py::arg("reply"),
        "The meaning of a negative integer reply of the server.");

    py::class_<tetherhost::Checked>(module, "Checked", "A compared scan: its TDO and the mismatched bit count.")
        .def_property_readonly(
            "tdo", [](const tetherhost::Checked& checked) { return toBytes(checked.tdo); }, "The TDO, as bytes.")
        .def_readonly("mismatched_bits", &tetherhost::Checked::mismatchedBits,
                      "How many bits differed from the expected value under the mask.")
        .def_property_readonly("matched", &tetherhost::Checked::matched, "True when no bit differed.")
        .def("__repr__", [](const tetherhost::Checked& checked) {
            return "Checked(tdo=" + std::string(py::repr(toBytes(checked.tdo))) +
                   ", mismatched_bits=" + std::to_string(checked.mismatchedBits) + ")";
        });

    py::class_<tetherhost::Device>(module, "Device", "One device of the JTAG chain, from the cable's TDI.")
        .def_readonly("name", &tetherhost::Device::name)
        .def_readonly("ir_length", &tetherhost::Device::irLength)
        .def_readonly("idcode", &tetherhost::Device::idcode, "The IDCODE, or None for a device without one.")
        .def("__repr__", [](const tetherhost::Device& device) {
            return "Device(name=" + std::string(py::repr(py::str(device.name))) +
                   ", ir_length=" + std::to_string(device.irLength) +
                   ", idcode=" + (device.idcode ? std::to_string(*device.idcode) : std::string("None")) + ")";
        });

    py::class_<tetherhost::svf::Mismatch>(module, "SvfMismatch", "A compared SVF scan whose TDO differed.")
        .def_readonly("first_line", &tetherhost::svf::Mismatch::firstLine)
        .def_readonly("last_line", &tetherhost::svf::Mismatch::lastLine)
        .def_readonly("statement", &tetherhost::svf::Mismatch::statement)
        .def_readonly("expected", &tetherhost::svf::Mismatch::expected)
        .def_readonly("actual", &tetherhost::svf::Mismatch::actual)
        .def_readonly("mask", &tetherhost::svf::Mismatch::mask)
        .def_readonly("differing_bits", &tetherhost::svf::Mismatch::differingBits);

    py::class_<tetherhost::svf::Report>(module, "SvfReport", "What playing an SVF file did.")
        .def_property_readonly(
            "outcome", [](const tetherhost::svf::Report& report) { return outcomeName(report.outcome); },
            "'passed', 'mismatched', 'bad file', 'cable failed' or 'stopped'.")
        .def_readonly("statements", &tetherhost::svf::Report::statements)
        .def_readonly("scans", &tetherhost::svf::Report::scans)
        .def_readonly("bits_shifted", &tetherhost::svf::Report::bitsShifted)
        .def_readonly("tdo_checks", &tetherhost::svf::Report::tdoChecks)
        .def_readonly("mismatches", &tetherhost::svf::Report::mismatches)
        .def_readonly("error", &tetherhost::svf::Report::error)
        .def_readonly("error_line", &tetherhost::svf::Report::errorLine);

    py::class_<Session>(module, "Session",
                        "One connection to the tetherhost server with both locks held.\n\n"
                        "Connects (starting the server when none answers), opens the session and takes the "
                        "command lock; close() or the end of a with block gives both back and disconnects.")
        .def(py::init([](const std::string& name, const std::string& application, const std::string& version,
                         const std::vector<int>& options, const std::optional<std::string>& serverDirectory,
                         const std::optional<std::string>& log, bool debug) {
                 tetherhost::SessionOptions given;
                 given.application = application;
                 given.version = version;
                 given.sessionOptions = options;
                 given.serverDirectory = serverDirectory ? *serverDirectory : defaultServerDirectory();
                 given.log = log.value_or(std::string());
                 given.debug = debug;
                 py::gil_scoped_release released;
                 return std::make_unique<Session>(name, given);
             }),
             py::arg("name"), py::kw_only(), py::arg("application") = "", py::arg("version") = "1.0",
             py::arg("options") = std::vector<int>(), py::arg("server_directory") = py::none(),
             py::arg("log") = py::none(), py::arg("debug") = false,
             "name: the client's name. application, version: command 4's texts (application defaults to the "
             "name). options: up to ten values for command 4's options. server_directory: where the server "
             "is started from when none answers (default: beside the installed tetherhost). log: a log file "
             "for the library's messages, which Error.message then names. debug: the library's messages on "
             "standard error.")
        .def("__enter__", [](Session& session) -> Session& { return session; })
        .def("__exit__",
             [](Session& session, const py::object& type, const py::object&, const py::object&) {
                 if (type.is_none()) {
                     py::gil_scoped_release released;
                     session.close();
                     return false;
                 }
                 // An exception is on its way out: closing must not replace it.
                 try {
                     py::gil_scoped_release released;
                     session.close();
                 } catch (const std::exception&) {
                 }
                 return false;
             })
        .def(
            "close",
            [](Session& session) {
                py::gil_scoped_release released;
                session.close();
            },
            "Gives both locks back and disconnects; raises Error on failure. Closing twice does nothing.")
        .def_property_readonly("is_open", &Session::isOpen, "False once closed.")
        .def(
            "send",
            [](Session& session, int command, const py::args& given) {
                const std::vector<tetherhost::Argument> arguments = toArguments(given);
                py::gil_scoped_release released;
                return session.send(command, arguments);
            },
            py::arg("command"),
            "A command by number with its arguments (int, str or bytes), checked against the command's "
            "pattern (TypeError when they do not fit); returns the server's integer reply. Command 44 takes "
            "the sub-command number first; command 41 takes the names alone.")
        .def(
            "jtag",
            [](Session& session, int subCommand, const py::args& given) {
                const std::vector<tetherhost::Argument> arguments = toArguments(given);
                py::gil_scoped_release released;
                return session.jtag(subCommand, arguments);
            },
            py::arg("sub_command"), "A JTAG-interface sub-command (command 44) by number; the integer reply.")
        .def(
            "scan_ir",
            [](Session& session, int bits, const py::buffer& tdi, const std::optional<py::buffer>& expected,
               const std::optional<py::buffer>& mask) { return scan(session, true, bits, tdi, expected, mask); },
            py::arg("bits"), py::arg("tdi"), py::arg("expected") = py::none(), py::arg("mask") = py::none(),
            "An instruction-register scan of `bits` bits (the first bit shifted is bit 0 of byte 0). Returns "
            "the TDO as bytes; with expected and mask, a Checked.")
        .def(
            "scan_dr",
            [](Session& session, int bits, const py::buffer& tdi, const std::optional<py::buffer>& expected,
               const std::optional<py::buffer>& mask) { return scan(session, false, bits, tdi, expected, mask); },
            py::arg("bits"), py::arg("tdi"), py::arg("expected") = py::none(), py::arg("mask") = py::none(),
            "A data-register scan, as scan_ir.")
        .def(
            "chain",
            [](Session& session) {
                py::gil_scoped_release released;
                return session.chain();
            },
            "The JTAG chain as the server describes it, a list of Device from the cable's TDI.")
        .def(
            "sspi_write",
            [](Session& session, int address, const py::buffer& data, int options) {
                const Block block(data);
                py::gil_scoped_release released;
                return session.sspiWrite(address, block.view(), options);
            },
            py::arg("address"), py::arg("data"), py::arg("options") = 0,
            "SSPI: writes data at address (command 50); the server's reply.")
        .def(
            "sspi_transfer",
            [](Session& session, int address, const py::buffer& data, int options) {
                const Block block(data);
                Bytes returned;
                {
                    py::gil_scoped_release released;
                    returned = session.sspiTransfer(address, block.view(), options);
                }
                return toBytes(returned);
            },
            py::arg("address"), py::arg("data"), py::arg("options") = 0,
            "SSPI: writes data at address and returns as many bytes read back from there (command 52).")
        .def(
            "i2c_write",
            [](Session& session, int device, int address, const py::buffer& data) {
                const Block block(data);
                py::gil_scoped_release released;
                return session.i2cWrite(device, address, block.view());
            },
            py::arg("device"), py::arg("address"), py::arg("data"),
            "I2C: writes data at word address of the device at bus address device (command 46).")
        .def(
            "i2c_transfer",
            [](Session& session, int device, int address, const py::buffer& data) {
                const Block block(data);
                Bytes returned;
                {
                    py::gil_scoped_release released;
                    returned = session.i2cTransfer(device, address, block.view());
                }
                return toBytes(returned);
            },
            py::arg("device"), py::arg("address"), py::arg("data"),
            "I2C: writes data and returns as many bytes read back from the same word address (command 48).")
        .def(
            "pump",
            [](Session& session, const py::buffer& data, int mode) {
                const Block block(data);
                py::gil_scoped_release released;
                return session.pump(block.view(), mode);
            },
            py::arg("data"), py::arg("mode"), "Pump data in mode (command 42); the server's reply.")
        .def(
            "pump_transfer",
            [](Session& session, const py::buffer& data, int mode) {
                const Block block(data);
                Bytes returned;
                {
                    py::gil_scoped_release released;
                    returned = session.pumpTransfer(block.view(), mode);
                }
                return toBytes(returned);
            },
            py::arg("data"), py::arg("mode"), "Pump data in mode and return as many bytes read back (one block).")
        .def(
            "read_text",
            [](Session& session) {
                py::gil_scoped_release released;
                return session.readText();
            },
            "The current command's text reply.")
        .def(
            "read_int",
            [](Session& session) {
                py::gil_scoped_release released;
                return session.readInt();
            },
            "The current command's next reply as an integer.")
        .def(
            "read_list",
            [](Session& session) {
                py::gil_scoped_release released;
                return session.readList();
            },
            "The current command's next reply as its ';'-separated fields.")
        .def(
            "read_data",
            [](Session& session, int bits) {
                Bytes data;
                {
                    py::gil_scoped_release released;
                    data = session.readData(bits);
                }
                return toBytes(data);
            },
            py::arg("bits"), "What the last transfer with read-back left: (bits + 7) // 8 bytes.")
        .def(
            "play_svf",
            [](Session& session, const std::string& path, bool keepGoing) {
                std::ifstream in(path, std::ios::binary);
                if (!in) throw py::value_error("cannot read " + path);
                tetherhost::svf::Options options;
                options.keepGoing = keepGoing;
                py::gil_scoped_release released;
                return tetherhost::svf::play(session.client(), in, path, options);
            },
            py::arg("path"), py::kw_only(), py::arg("keep_going") = false,
            "Plays the SVF file at path on the chain; an SvfReport. Stops at the first mismatch unless "
            "keep_going.");
}
