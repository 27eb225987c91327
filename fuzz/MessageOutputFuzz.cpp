// SPDX-License-Identifier: MIT
/* Fuzz target "message_output": message templates and their arguments.
 *
 * The first byte picks what is driven:
 *   0  tetherhost::fillTemplate with a template taken from the input;
 *   1  Client::PrintMessage, written to a log file, of a numbered message or
 *      of an identifier taken from the input;
 *   2  ClientUtils::PrintMessage of a numbered message, written to a log file.
 * Each placeholder of the template gets an argument of its type from the
 * input. The filled line (or the one line the log file holds afterwards) is
 * compared with an independent reading of the template; a difference aborts,
 * which the fuzzer reports like a crash. */
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Client.h"
#include "ClientUtils.h"
#include "FuzzInput.h"
#include "platform/MessageTemplate.h"
#include "ScratchFile.h"
#include "platform/msgManager.h"

namespace {

using tetherhost::fuzz::FuzzInput;

/* A variadic call is built from at most this many arguments. */
constexpr std::size_t maxArguments = 6;
constexpr std::size_t maxTemplateLength = 255;
constexpr std::size_t maxTextArgument = 64;

struct Argument {
    bool isText;
    int number;
    std::string text;
};

bool placeholderAt(const std::string& messageTemplate, std::size_t i, char kind) {
    return messageTemplate.compare(i, 3, std::string("$$") + kind) == 0;
}

/* The placeholders of `messageTemplate`, in order, each with a value taken
 * from `input`. The template is cut after its maxArguments-th placeholder,
 * since a caller must pass an argument for every placeholder. */
std::vector<Argument> argumentsFor(std::string& messageTemplate, FuzzInput& input) {
    std::vector<Argument> arguments;
    std::size_t i = 0;
    while (i < messageTemplate.size()) {
        const bool text = placeholderAt(messageTemplate, i, 's');
        if (!text && !placeholderAt(messageTemplate, i, 'd')) {
            ++i;
            continue;
        }
        if (arguments.size() == maxArguments) {
            messageTemplate.resize(i);
            break;
        }
        arguments.push_back(text ? Argument{true, 0, input.text(maxTextArgument)}
                                 : Argument{false, input.integer(), {}});
        i += 3;
    }
    return arguments;
}

/* What the template filled with `arguments` must read: placeholders replaced
 * in order, every other character copied. */
std::string expectedLine(const std::string& messageTemplate, const std::vector<Argument>& arguments) {
    std::string line;
    std::size_t next = 0;
    std::size_t i = 0;
    while (i < messageTemplate.size()) {
        if (placeholderAt(messageTemplate, i, 's') || placeholderAt(messageTemplate, i, 'd')) {
            const Argument& argument = arguments[next++];
            line += argument.isText ? argument.text : std::to_string(argument.number);
            i += 3;
        } else {
            line += messageTemplate[i++];
        }
    }
    return line;
}

/* Calls call(a0, a1, ...) with each argument passed as a const char* or an
 * int, as a variadic caller would. The types are known only at run time, so
 * the call is chosen among all type sequences of up to maxArguments. */
template <typename Call, typename... Taken>
void callWith(const Call& call, const std::vector<Argument>& arguments, std::size_t next, Taken... taken) {
    if constexpr (sizeof...(Taken) < maxArguments) {
        if (next < arguments.size()) {
            const Argument& argument = arguments[next];
            if (argument.isText) {
                callWith(call, arguments, next + 1, taken..., argument.text.c_str());
            } else {
                callWith(call, arguments, next + 1, taken..., argument.number);
            }
            return;
        }
    }
    call(taken...);
}

void fillFromArguments(const std::string* messageTemplate, std::string* line, ...) {
    va_list args;
    va_start(args, line);
    tetherhost::fillTemplate(*messageTemplate, args, *line);
    va_end(args);
}

void requireEqual(const std::string& got, const std::string& expected, const char* what) {
    if (got == expected) return;
    std::fprintf(stderr, "%s: got %zu bytes \"%s\", expected %zu bytes \"%s\"\n", what, got.size(), got.c_str(),
                 expected.size(), expected.c_str());
    std::abort();
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

const std::string& logPath() {
    static const tetherhost::fuzz::ScratchFile log("messages.log");
    return log.path;
}

Client& client() {
    static char name[] = "fuzzclient";
    static Client instance(name);
    return instance;
}

std::string templateOf(const std::string& id) {
    msgManager* catalogue = new msgManager("tetherhostclient");
    std::string messageTemplate;
    catalogue->queryMsgString(id.c_str(), messageTemplate);
    delete catalogue;
    return messageTemplate;
}

/* Posts `id` through `post` (which writes to the log file) and checks the
 * line the file then holds. */
template <typename Post>
void checkLogLine(const std::string& id, FuzzInput& input, const Post& post) {
    std::string messageTemplate = templateOf(id);
    const std::vector<Argument> arguments = argumentsFor(messageTemplate, input);
    // A template cut by argumentsFor would read past the arguments given:
    // only whole templates go through the library.
    if (messageTemplate != templateOf(id)) return;
    callWith(post, arguments, 0);
    requireEqual(readFile(logPath()), expectedLine(messageTemplate, arguments) + "\n", id.c_str());
}

std::string numberedId(FuzzInput& input) { return std::to_string(1000 + input.u16() % 1200); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    switch (input.byte() % 3) {
    case 0: {
        std::string messageTemplate = input.text(maxTemplateLength);
        const std::vector<Argument> arguments = argumentsFor(messageTemplate, input);
        std::string line;
        callWith([&](auto... values) { fillFromArguments(&messageTemplate, &line, values...); }, arguments, 0);
        requireEqual(line, expectedLine(messageTemplate, arguments), "fillTemplate");
        break;
    }
    case 1: {
        const std::string id = input.byte() % 2 == 0 ? numberedId(input) : input.text(8);
        Client& poster = client();
        poster.Set_Log_File(logPath().c_str());
        checkLogLine(id, input, [&](auto... values) { poster.PrintMessage(id, values...); });
        break;
    }
    case 2: {
        const std::string id = numberedId(input);
        std::fclose(std::fopen(logPath().c_str(), "w"));
        // The stream is only tested against null (each line reopens the
        // file by name), so any open stream marks that logging is on.
        ClientUtils utils(0, stdout, "fuzzutils", logPath());
        checkLogLine(id, input, [&](auto... values) { utils.PrintMessage(id, values...); });
        break;
    }
    }
    return 0;
}
