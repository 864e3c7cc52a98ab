// JSON documents: a small value type, so that only json.cpp carries the weight of the library that reads and writes
// them. Objects keep the order of their keys.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace yfs::tool {

// Text that isn't JSON; what() says where.
struct json_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class json {
public:
    using array = std::vector<json>;
    using member = std::pair<std::string, json>;
    using object = std::vector<member>;

    json() = default;
    json(bool value) : value_(value) {}                          // NOLINT(google-explicit-constructor)
    json(std::uint32_t value) : value_(std::uint64_t{value}) {}  // NOLINT(google-explicit-constructor)
    json(std::uint64_t value) : value_(value) {}                 // NOLINT(google-explicit-constructor)
    json(double value) : value_(value) {}                        // NOLINT(google-explicit-constructor)
    json(std::string value) : value_(std::move(value)) {}        // NOLINT(google-explicit-constructor)
    json(const char* value) : value_(std::string(value)) {}      // NOLINT(google-explicit-constructor)
    json(std::string_view value) : value_(std::string(value)) {} // NOLINT(google-explicit-constructor)
    json(array value) : value_(std::move(value)) {}              // NOLINT(google-explicit-constructor)
    json(object value) : value_(std::move(value)) {}             // NOLINT(google-explicit-constructor)

    static json parse(std::string_view text);
    std::string dump() const; // two spaces a level, a line feed at the end

    // Null if the value has another type.
    const std::string* as_string() const { return std::get_if<std::string>(&value_); }
    const std::uint64_t* as_unsigned() const { return std::get_if<std::uint64_t>(&value_); }
    const object* as_object() const { return std::get_if<object>(&value_); }
    object* as_object() { return std::get_if<object>(&value_); }

    using storage = std::variant<std::nullptr_t, bool, std::uint64_t, double, std::string, array, object>;
    const storage& value() const { return value_; }

private:
    storage value_;
};

} // namespace yfs::tool
