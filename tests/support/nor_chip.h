// A strict NOR flash chip over a buffer: programming clears bits and nothing else, erasing takes whole aligned blocks,
// nothing lies outside the image. It breaks on demand: a call fails before or after it landed, or passes without
// landing, or the power goes in the middle of a change and every later call fails. It knows nothing of the entry points
// that it stands behind; tests/support/spi_chip.h puts it under SpiDrv*.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace yfs::test {

enum class chip_call { read, write, erase };

// One write or erase as it was asked for. `bytes` of an erase is empty.
struct chip_change {
    chip_call kind;
    std::uint32_t addr, len;
    std::vector<std::uint8_t> bytes;
};

enum class chip_fault {
    before, // non-zero, nothing done
    after,  // done, then non-zero
    silent, // 0, nothing done
    garbled // done with the first byte's bits inverted, 0: a glitch on the bus (reads) or a bad cell (writes)
};

class nor_chip {
public:
    static constexpr std::uint32_t block = 4096;

    explicit nor_chip(std::span<std::uint8_t> image) : image_(image) {}

    // The three calls. 0, or 1 for a failure.
    std::uint32_t read(std::uint32_t addr, std::uint32_t len, void* buf);
    std::uint32_t write(std::uint32_t addr, std::uint32_t len, const void* buf);
    std::uint32_t erase(std::uint32_t addr) { return carry_out({chip_call::erase, addr, block, {}}); }

    // What a violation does beside being kept: it fails the running test (on by default), and where a program call asks
    // for a 0 to become 1, either the bits stay 0 as on a real chip (default), or the write passes as a plain copy.
    void violations_fail_test(bool on) { violations_fail_test_ = on; }
    void plain_copy(bool on) { plain_copy_ = on; }
    // Each as it is told, with the number of the change since the chip was made, counting from 1.
    const std::vector<std::string>& violations() const { return violations_; }

    // The n-th call of a kind from now on, counting from 1, and the `times` - 1 calls after it go wrong.
    void fail(chip_call kind, std::uint64_t n, chip_fault how, std::uint64_t times = 1);
    // By address of a byte: so many of its next reads come out changed.
    std::map<std::uint32_t, unsigned> misreads;
    // Power goes during the n-th change (write or erase) from now on, counting from 1: of a write the first `bytes`
    // bytes land, of an erase the first `bytes` bytes of the block become 0xFF. In the byte behind them the bits set in
    // `unfinished` stay as they were and the others are done already; 0xFF doesn't touch it. Every later call fails.
    void cut_power(std::uint64_t n, std::uint32_t bytes, std::uint8_t unfinished = 0xFF);
    bool power_is_off() const { return off_; }
    // Takes back the cut and all faults; the image stays as it is.
    void power_on();

    // Every change that reached the chip whole, while the journal is on.
    void keep_journal(bool on) { keep_journal_ = on; }
    const std::vector<chip_change>& journal() const { return journal_; }

    // Calls that were carried out.
    struct counts {
        std::uint64_t reads, writes, erases, bytes_read;
    };
    const counts& counters() const { return counts_; }
    void reset_counters() { counts_ = {}; }

private:
    struct pending_fault {
        chip_call kind;
        std::uint64_t first, last; // numbers of the calls of that kind, counting from 1 since the chip was made
        chip_fault how;
    };

    bool refuses(const char* broken, bool it_is, std::uint32_t addr);
    bool in_range(std::uint32_t addr, std::uint32_t len) const { return std::uint64_t{addr} + len <= image_.size(); }
    std::optional<chip_fault> count_call(chip_call kind);
    std::uint32_t carry_out(chip_change change);

    std::span<std::uint8_t> image_;
    bool violations_fail_test_ = true, plain_copy_ = false, keep_journal_ = false, off_ = false;
    std::uint64_t changes_ = 0, cut_in_ = 0; // changes asked for so far; number of the one that is cut, 0 for none
    std::uint32_t cut_bytes_ = 0;
    std::uint8_t cut_unfinished_ = 0xFF;
    std::uint64_t calls_[3] = {};
    std::vector<pending_fault> faults_;
    std::vector<std::string> violations_;
    std::vector<chip_change> journal_;
    counts counts_{};
};

// One change cut short, on a copy of an image: the same bytes as cut_power() leaves. `bytes` may be the whole length.
void replay_cut(std::span<std::uint8_t> image, const chip_change& change, std::uint32_t bytes,
                std::uint8_t unfinished = 0xFF, bool plain_copy = false);

} // namespace yfs::test
