#include "tests/support/nor_chip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace yfs::test {

namespace {

// A byte on its way from `old` to `target`: the bits of `unfinished` haven't moved yet.
std::uint8_t on_the_way(std::uint8_t old, std::uint8_t target, std::uint8_t unfinished)
{
    return static_cast<std::uint8_t>((old & unfinished) | (target & ~unfinished));
}

// The first `bytes` bytes of the change land, the one behind them in part.
void land(std::span<std::uint8_t> image, const chip_change& change, std::uint32_t bytes, std::uint8_t unfinished,
          bool plain_copy)
{
    const auto target = [&](std::uint32_t i) -> std::uint8_t {
        if (change.kind == chip_call::erase) return 0xFF;
        const std::uint8_t old = image[change.addr + i];
        return plain_copy ? change.bytes[i] : static_cast<std::uint8_t>(old & change.bytes[i]);
    };
    bytes = std::min(bytes, change.len);
    for (std::uint32_t i = 0; i < bytes; ++i) image[change.addr + i] = target(i);
    if (bytes == change.len) return;
    std::uint8_t& torn = image[change.addr + bytes];
    torn = on_the_way(torn, target(bytes), unfinished);
}

} // namespace

std::string to_string(const chip_violation& violation)
{
    static constexpr const char* names[] = {"programs a 0 to 1", "outside the image", "erase address not on a block"};
    return std::string(names[static_cast<int>(violation.broken)]) + " at address " + std::to_string(violation.addr) +
           ", change " + std::to_string(violation.change);
}

bool nor_chip::in_range(std::uint32_t addr, std::uint32_t len) const
{
    return std::uint64_t{addr} + len <= image_.size();
}

void nor_chip::violate(chip_violation::rule broken, std::uint32_t addr, std::uint64_t change)
{
    violations_.push_back({broken, addr, change});
    if (violations_fail_test_) ADD_FAILURE() << "flash: " << to_string(violations_.back());
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
    if (!in_range(addr, len)) {
        violate(chip_violation::rule::out_of_range, addr, 0);
        return 1;
    }
    if (fault == chip_fault::before) return 1;
    if (fault == chip_fault::silent) return 0;
    if (len != 0) std::memcpy(buf, image_.data() + addr, len);
    if (fault == chip_fault::garbled && len != 0) *static_cast<std::uint8_t*>(buf) ^= 0xFF;
    ++counts_.reads;
    counts_.bytes_read += len;
    return fault == chip_fault::after ? 1 : 0;
}

std::uint32_t nor_chip::write(std::uint32_t addr, std::uint32_t len, const void* buf)
{
    if (off_) return 1;
    chip_change change{chip_call::write, addr, len, {}};
    const auto* bytes = static_cast<const std::uint8_t*>(buf);
    if (in_range(addr, len)) change.bytes.assign(bytes, bytes + len);
    return carry_out(std::move(change));
}

std::uint32_t nor_chip::erase(std::uint32_t addr)
{
    if (off_) return 1;
    return carry_out({chip_call::erase, addr, block, {}});
}

std::uint32_t nor_chip::carry_out(chip_change change)
{
    ++changes_;
    const auto fault = count_call(change.kind);
    if (!in_range(change.addr, change.len)) {
        violate(chip_violation::rule::out_of_range, change.addr, changes_);
        return 1;
    }
    if (change.kind == chip_call::erase && change.addr % block != 0) {
        violate(chip_violation::rule::unaligned_erase, change.addr, changes_);
        return 1;
    }
    for (std::uint32_t i = 0; i < change.bytes.size(); ++i) {
        if ((change.bytes[i] & ~image_[change.addr + i]) == 0) continue;
        violate(chip_violation::rule::programs_one, change.addr + i, changes_);
        break;
    }
    if (changes_ == cut_in_) {
        land(image_, change, cut_bytes_, cut_unfinished_, plain_copy_);
        off_ = true;
        return 1;
    }
    if (fault == chip_fault::before) return 1;
    if (fault == chip_fault::silent) return 0;
    land(image_, change, change.len, 0xFF, plain_copy_);
    if (fault == chip_fault::garbled && change.len != 0) image_[change.addr] ^= 0xFF;
    const bool erases = change.kind == chip_call::erase;
    ++(erases ? counts_.erases : counts_.writes);
    (erases ? counts_.bytes_erased : counts_.bytes_programmed) += change.len;
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

void replay_cut(std::span<std::uint8_t> image, const chip_change& change, std::uint32_t bytes, std::uint8_t unfinished)
{
    land(image, change, bytes, unfinished, false);
}

} // namespace yfs::test
