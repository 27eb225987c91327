// SPDX-License-Identifier: MIT
/* A small JSON value for tetherctl's --json output: null, booleans, 64-bit
 * integers, texts, arrays and objects whose keys keep their insertion order.
 * Only writing is needed; tetherctl never parses JSON. */
#ifndef TETHERCTL_JSON_H
#define TETHERCTL_JSON_H

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tetherctl {

class Json {
public:
    using Array = std::vector<Json>;
    using Object = std::vector<std::pair<std::string, Json>>;

    Json() = default;
    Json(bool value) : value(value) {}
    Json(int value) : value(static_cast<std::int64_t>(value)) {}
    Json(long value) : value(static_cast<std::int64_t>(value)) {}
    Json(long long value) : value(static_cast<std::int64_t>(value)) {}
    Json(unsigned value) : value(static_cast<std::int64_t>(value)) {}
    Json(unsigned long value) : value(static_cast<std::int64_t>(value)) {}
    Json(unsigned long long value) : value(static_cast<std::int64_t>(value)) {}
    Json(double value) : value(value) {}
    Json(const char* value) : value(std::string(value)) {}
    Json(std::string value) : value(std::move(value)) {}
    Json(Array value) : value(std::move(value)) {}

    /** The member `key` of an object, added (as null) when missing; a null
     * value becomes an empty object first. */
    Json& operator[](const std::string& key);
    /** Appends to an array; a null value becomes an empty array first. */
    void push(Json element);

    /** Compact JSON text; texts are escaped so that any byte string is valid. */
    std::string dump() const;

private:
    std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Array, Object> value = nullptr;
};

}  // namespace tetherctl

#endif
