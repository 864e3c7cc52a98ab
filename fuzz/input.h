// The bytes of one run, taken from the front; past their end everything reads as 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

class input {
public:
    input(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    std::uint32_t number(unsigned bytes)
    {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < bytes && at_ != end_; ++i) value |= std::uint32_t{*at_++} << (8 * i);
        return value;
    }
    std::vector<std::uint8_t> bytes(std::size_t count)
    {
        const std::size_t here = std::min(count, static_cast<std::size_t>(end_ - at_));
        std::vector<std::uint8_t> out(at_, at_ + here);
        at_ += here;
        return out;
    }
    std::vector<std::uint8_t> rest() { return bytes(static_cast<std::size_t>(end_ - at_)); }

private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

} // namespace fuzz
