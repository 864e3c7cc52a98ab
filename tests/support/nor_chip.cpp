#include "tests/support/nor_chip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace yfs::test {

void replay_cut(std::span<std::uint8_t> image, const chip_change& change, std::uint32_t bytes, std::uint8_t unfinished,
                bool plain_copy)
{
    for (std::uint32_t i = 0; i < change.len && i <= bytes; ++i) {
        std::uint8_t& cell = image[change.addr + i];
        const bool erases = change.kind == chip_call::erase;
        const int target = erases ? 0xFF : plain_copy ? change.bytes[i] : cell & change.bytes[i];
        const int kept = i < bytes ? 0 : unfinished; // the last one is on its way
        cell = static_cast<std::uint8_t>((cell & kept) | (target & ~kept));
    }
}

bool nor_chip::refuses(const char* broken, bool it_is, std::uint32_t addr)
{
    if (!it_is) return false;
    violations_.push_back(std::string(broken) + " at address " + std::to_string(addr) + ", change " +
                          std::to_string(changes_));
    if (violations_fail_test_) ADD_FAILURE() << "flash: " << violations_.back();
    return true;
}

std::optional<chip_fault> nor_chip::count_call(chip_call kind)
{
    const std::uint64_t number = ++calls_[static_cast<int>(kind)];
    for (const pending_fault& fault : faults_)
        if (fault.kind == kind && fault.first <= number && number <= fault.last) return fault.how;
    return std::nullopt;
}

std::uint32_t nor_chip::read(std::uint32_t addr, std::uint32_t len, void* buf)
{
    if (off_) return 1;
    const auto fault = count_call(chip_call::read);
    if (refuses("outside the image", !in_range(addr, len), addr) || fault == chip_fault::before) return 1;
    if (fault == chip_fault::silent || len == 0) return 0;
    std::memcpy(buf, image_.data() + addr, len);
    if (fault == chip_fault::garbled) *static_cast<std::uint8_t*>(buf) ^= 0xFF;
    for (auto& [at, times] : misreads)
        if (times != 0 && at - addr < len) --times, static_cast<std::uint8_t*>(buf)[at - addr] ^= 1;
    ++counts_.reads;
    counts_.bytes_read += len;
    return fault == chip_fault::after ? 1 : 0;
}

std::uint32_t nor_chip::write(std::uint32_t addr, std::uint32_t len, const void* buf)
{
    const auto* bytes = static_cast<const std::uint8_t*>(buf);
    return carry_out({chip_call::write, addr, len, {bytes, bytes + len}});
}

std::uint32_t nor_chip::carry_out(chip_change change)
{
    if (off_) return 1;
    ++changes_;
    const auto fault = count_call(change.kind);
    const bool erases = change.kind == chip_call::erase;
    if (refuses("outside the image", !in_range(change.addr, change.len), change.addr)) return 1;
    if (refuses("erase address not on a block", erases && change.addr % block != 0, change.addr)) return 1;
    for (std::uint32_t i = 0; i < change.bytes.size(); ++i)
        if (refuses("programs a 0 to 1", (change.bytes[i] & ~image_[change.addr + i]) != 0, change.addr + i)) break;
    if (changes_ == cut_in_) {
        replay_cut(image_, change, cut_bytes_, cut_unfinished_, plain_copy_);
        off_ = true;
        return 1;
    }
    if (fault == chip_fault::before) return 1;
    if (fault == chip_fault::silent) return 0;
    replay_cut(image_, change, change.len, 0xFF, plain_copy_);
    if (fault == chip_fault::garbled && change.len != 0) image_[change.addr] ^= 0xFF;
    ++(erases ? counts_.erases : counts_.writes);
    if (keep_journal_) journal_.push_back(std::move(change));
    return fault == chip_fault::after ? 1 : 0;
}

void nor_chip::fail(chip_call kind, std::uint64_t n, chip_fault how, std::uint64_t times)
{
    const std::uint64_t first = calls_[static_cast<int>(kind)] + n;
    faults_.push_back({kind, first, first + times - 1, how});
}

void nor_chip::cut_power(std::uint64_t n, std::uint32_t bytes, std::uint8_t unfinished)
{
    cut_in_ = changes_ + n;
    cut_bytes_ = bytes;
    cut_unfinished_ = unfinished;
}

void nor_chip::power_on()
{
    off_ = false;
    cut_in_ = 0;
    faults_.clear();
}

} // namespace yfs::test
