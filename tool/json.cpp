#include "tool/json.h"

#include <nlohmann/json.hpp>

namespace yfs::tool {

namespace {

using library_json = nlohmann::ordered_json;

json from_library(const library_json& value)
{
    switch (value.type()) {
    case library_json::value_t::boolean:
        return value.get<bool>();
    case library_json::value_t::number_unsigned:
        return value.get<std::uint64_t>();
    case library_json::value_t::number_integer: // a negative one: nothing here takes it, but it has to look like one
    case library_json::value_t::number_float:
        return value.get<double>();
    case library_json::value_t::string:
        return value.get<std::string>();
    case library_json::value_t::array: {
        json::array items;
        for (const library_json& item : value) items.push_back(from_library(item));
        return items;
    }
    case library_json::value_t::object: {
        json::object members;
        for (const auto& [key, item] : value.items()) members.emplace_back(key, from_library(item));
        return members;
    }
    default:
        return {};
    }
}

struct to_library {
    library_json operator()(const json::array& items) const
    {
        library_json out = library_json::array();
        for (const json& item : items) out.push_back(std::visit(*this, item.value()));
        return out;
    }
    library_json operator()(const json::object& members) const
    {
        library_json out = library_json::object();
        for (const auto& [key, item] : members) out[key] = std::visit(*this, item.value());
        return out;
    }
    template <typename T>
    library_json operator()(const T& scalar) const
    {
        return scalar;
    }
};

} // namespace

json::json() = default;
json::json(const json& other) = default;
json::json(json&& other) noexcept = default;
json& json::operator=(const json& other) = default;
json& json::operator=(json&& other) noexcept = default;
json::~json() = default;

json::json(bool value) : value_(value) {}
json::json(std::uint32_t value) : value_(std::uint64_t{value}) {}
json::json(std::uint64_t value) : value_(value) {}
json::json(double value) : value_(value) {}
json::json(const char* value) : value_(std::string(value)) {}
json::json(std::string value) : value_(std::move(value)) {}
json::json(std::string_view value) : value_(std::string(value)) {}
json::json(array value) : value_(std::move(value)) {}
json::json(object value) : value_(std::move(value)) {}

json json::parse(std::string_view text)
{
    try {
        return from_library(library_json::parse(text));
    } catch (const library_json::parse_error& error) {
        std::string what = error.what(); // "[json.exception.parse_error.101] parse error at line 2, column 3: ..."
        const std::size_t tag = what.find("] ");
        throw json_error(tag == std::string::npos ? what : what.substr(tag + 2));
    }
}

std::string json::dump() const
{
    return std::visit(to_library{}, value_).dump(2, ' ', false, library_json::error_handler_t::replace) + "\n";
}

} // namespace yfs::tool
