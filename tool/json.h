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

    json();
    json(const json& other);
    json(json&& other) noexcept;
    json& operator=(const json& other);
    json& operator=(json&& other) noexcept;
    ~json();

    // Conversions, so that a document reads as what it holds.
    json(bool value);
    json(std::uint32_t value);
    json(std::uint64_t value);
    json(double value);
    json(const char* value);
    json(std::string value);
    json(std::string_view value);
    json(array value);
    json(object value);

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
