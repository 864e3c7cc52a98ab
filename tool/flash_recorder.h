// What the library programs and erases while one of these lives, in order. The tool stands in for the library's medium
// and hands every access on to it, so that what is recorded is what happens.
#pragma once

#include "tool/image.h"

#include <cstdint>
#include <vector>

namespace yfs::tool {

struct flash_operation {
    image_kind medium;
    bool erase;
    std::uint32_t address;
    std::uint32_t length;
    bytes data; // what is programmed

    // The first `count` bytes of it, into an image.
    void apply(bytes& image, std::uint32_t count) const;
    void apply(bytes& image) const { apply(image, length); }
};

class flash_recorder {
public:
    flash_recorder();
    flash_recorder(const flash_recorder&) = delete;
    flash_recorder& operator=(const flash_recorder&) = delete;
    ~flash_recorder();

    const std::vector<flash_operation>& operations() const { return operations_; }
    void add(flash_operation operation) { operations_.push_back(std::move(operation)); }

private:
    std::vector<flash_operation> operations_;
};

} // namespace yfs::tool
