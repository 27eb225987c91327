// SPDX-License-Identifier: MIT
/* Turning a runtime list of typed arguments into a call of Client::Send.
 *
 * Every argument reaches Send with the exact type the library reads: an int
 * for an integer, and for a text or a byte block a pointer to const void. A
 * pointer to void may be read back as a pointer to any character type, which
 * is how the library takes both texts (const char*) and data blocks (const
 * unsigned char*), so one pointer type serves both and the number of call
 * shapes stays that of a two-type alphabet. */
#include "tools/TypedSend.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Client.h"
#include "support/ByteUnits.h"
#include "tools/Failure.h"

namespace tetherctl {

namespace {

/* Zero padding of byte blocks stops here (16 MiB): beyond that the caller
 * must give the bytes. */
constexpr std::size_t maxPaddedBlock = 16 * tetherhost::units::mebi;

using Pointer = const void*;

bool isPointerKind(ArgumentKind kind) { return kind != ArgumentKind::Integer; }

struct Plan {
    struct Run {
        bool pointers;
        std::size_t first;  // index into integers or pointers
        std::size_t length;
    };
    std::vector<int> integers;
    std::vector<Pointer> pointers;
    std::vector<Run> runs;
};

Plan makePlan(const std::vector<TypedArgument>& arguments) {
    Plan plan;
    for (const TypedArgument& argument : arguments) {
        const bool pointer = isPointerKind(argument.kind);
        if (plan.runs.empty() || plan.runs.back().pointers != pointer)
            plan.runs.push_back({pointer, pointer ? plan.pointers.size() : plan.integers.size(), 0});
        ++plan.runs.back().length;
        if (!pointer)
            plan.integers.push_back(argument.integer);
        else if (argument.kind == ArgumentKind::Text)
            plan.pointers.push_back(argument.text.c_str());
        else
            plan.pointers.push_back(argument.bytes.empty() ? nullptr : argument.bytes.data());
    }
    return plan;
}

template <typename... Done>
constexpr bool endsWithPointer() {
    if constexpr (sizeof...(Done) == 0)
        return false;
    else
        return std::is_pointer_v<std::tuple_element_t<sizeof...(Done) - 1, std::tuple<Done...>>>;
}

template <std::size_t RunIndex, typename... Done>
int sendRuns(Client& client, int command, const Plan& plan, Done... done);

/* Reached only when sendTyped's own shape check was bypassed. */
UsageError shapeRefused() { return UsageError("send: the arguments exceed the shapes tetherctl can call"); }

/* The longest run that the limits allow after `done` arguments in `runs` runs. */
constexpr int longestRun(int done, int runs) {
    int length = 0;
    while (shapeAllowed(done + length + 1, runs + 1)) ++length;
    return length;
}

/* Adds the run's values to the call and goes on with the next run. */
template <std::size_t RunIndex, bool Pointers, std::size_t... I, typename... Done>
int appendRun(Client& client, int command, const Plan& plan, std::index_sequence<I...>, Done... done) {
    const std::size_t first = plan.runs[RunIndex].first;
    if constexpr (Pointers)
        return sendRuns<RunIndex + 1>(client, command, plan, done..., plan.pointers[first + I]...);
    else
        return sendRuns<RunIndex + 1>(client, command, plan, done..., plan.integers[first + I]...);
}

/* Calls appendRun with the run's actual length, chosen among the lengths the
 * limits allow after `Done` (L + 1 for each L); only those are instantiated. */
template <std::size_t RunIndex, bool Pointers, typename... Done, std::size_t... L>
int sendRun(Client& client, int command, const Plan& plan, std::index_sequence<L...>, Done... done) {
    const std::size_t length = plan.runs[RunIndex].length;
    int result = 0;
    const bool called = ((length == L + 1 && (result = appendRun<RunIndex, Pointers>(
                                                  client, command, plan, std::make_index_sequence<L + 1>{}, done...),
                                              true)) ||
                         ...);
    if (!called) throw shapeRefused();
    return result;
}

template <std::size_t RunIndex, typename... Done>
int sendRuns(Client& client, int command, const Plan& plan, Done... done) {
    if (RunIndex == plan.runs.size()) return client.Send(command, done...);
    constexpr int longest = longestRun(static_cast<int>(sizeof...(Done)), static_cast<int>(RunIndex));
    using Lengths = std::make_index_sequence<longest>;
    if constexpr (longest == 0) {
        throw shapeRefused();
    } else if constexpr (RunIndex == 0) {
        // Runs alternate in kind, so only the first run's kind is a choice.
        if (plan.runs[0].pointers) return sendRun<0, true>(client, command, plan, Lengths{});
        return sendRun<0, false>(client, command, plan, Lengths{});
    } else {
        return sendRun<RunIndex, !endsWithPointer<Done...>()>(client, command, plan, Lengths{}, done...);
    }
}

int parseInteger(const std::string& text, const std::string& given) {
    if (text.empty()) throw UsageError("send: '" + given + "' has no number");
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0') throw UsageError("send: '" + given + "' is not a number");
    if (errno == ERANGE || value < INT_MIN || value > INT_MAX)
        throw UsageError("send: '" + given + "' does not fit in an int");
    return static_cast<int>(value);
}

}  // namespace

TypedArgument parseTypedArgument(const std::string& given) {
    if (given.size() < 2 || given[1] != ':')
        throw UsageError("send: argument '" + given + "' needs a type: i:NUMBER, s:TEXT or x:HEX");
    const std::string value = given.substr(2);
    TypedArgument argument;
    switch (given[0]) {
    case 'i':
        argument.kind = ArgumentKind::Integer;
        argument.integer = parseInteger(value, given);
        break;
    case 's':
        if (value.size() > maxTextLength)
            throw UsageError("send: texts are limited to " + std::to_string(maxTextLength) + " bytes");
        argument.kind = ArgumentKind::Text;
        argument.text = value;
        break;
    case 'x': {
        auto bytes = parseHexBytes(value);
        if (!bytes) throw UsageError("send: '" + given + "' is not an even number of hex digits");
        argument.kind = ArgumentKind::Bytes;
        argument.bytes = std::move(*bytes);
        break;
    }
    default:
        throw UsageError("send: unknown type '" + given.substr(0, 1) + "' in '" + given +
                         "': use i:NUMBER, s:TEXT or x:HEX");
    }
    return argument;
}

int countRuns(const std::vector<TypedArgument>& arguments) {
    int runs = 0;
    for (std::size_t i = 0; i < arguments.size(); ++i)
        if (i == 0 || isPointerKind(arguments[i].kind) != isPointerKind(arguments[i - 1].kind)) ++runs;
    return runs;
}

void checkArgumentShape(const std::vector<TypedArgument>& arguments) {
    const int count = static_cast<int>(arguments.size());
    const int runs = countRuns(arguments);
    if (count > maxSendArguments)
        throw UsageError("send: at most " + std::to_string(maxSendArguments) + " arguments, " + std::to_string(count) +
                         " given");
    if (!shapeAllowed(count, runs))
        throw UsageError("send: " + std::to_string(count) + " arguments in " + std::to_string(runs) +
                         " runs of one kind; " + std::to_string(count) + " arguments may form at most " +
                         std::to_string(maxRunsFor(count)) + " runs (see tetherctl send --help)");
}

int sendTyped(Client& client, int command, std::vector<TypedArgument> arguments) {
    checkArgumentShape(arguments);
    std::size_t blockLength = 0;
    for (const TypedArgument& argument : arguments)
        if (argument.kind == ArgumentKind::Integer && argument.integer > 0)
            blockLength = std::max(blockLength, (static_cast<std::size_t>(argument.integer) + 7) / 8);
    blockLength = std::min(blockLength, maxPaddedBlock);
    // "x:" alone stays a null pointer.
    for (TypedArgument& argument : arguments)
        if (argument.kind == ArgumentKind::Bytes && !argument.bytes.empty() && argument.bytes.size() < blockLength)
            argument.bytes.resize(blockLength, 0);
    return sendRuns<0>(client, command, makePlan(arguments));
}

}  // namespace tetherctl
