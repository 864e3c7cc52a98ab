// What the parts of the torture program share: the counts, and where a change of the flash can be cut.
#pragma once

#include "tests/support/nor_chip.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace torture {

struct totals {
    std::uint64_t operations = 0;
    std::uint64_t cuts = 0;
    std::uint64_t pairs = 0; // a second cut in what follows the first
    std::uint64_t lost = 0;
};

// Says what a cut has done to the volume; `what` tells how to get there again.
void report_loss(totals& all, std::uint64_t seed, const std::string& what);

// Bytes of a change that landed before the cut: every place, or of a long write every `step`-th and the last.
std::vector<std::uint32_t> places(const yfs::test::chip_change& change, std::uint32_t step);

// Runs over an image that a cut has left and puts the image back afterwards, byte for byte, without copying all of it.
class scratch {
public:
    explicit scratch(std::vector<std::uint8_t>& image) : image_(image), chip(image)
    {
        chip.keep_journal(true);
        chip.violations_fail_test(false);
    }
    // Where the image differs from `base`: what `change` covers, and what the chip has seen.
    void restore(const std::vector<std::uint8_t>& base, const yfs::test::chip_change& change);

private:
    std::vector<std::uint8_t>& image_;

public:
    yfs::test::nor_chip chip;
};

void cut_afs(std::uint64_t seed, totals& all);
void cut_efs(std::uint64_t seed, totals& all);
// Every torn header of a small volume: lengths by sequence numbers by erase counts, from `first` number on.
void sweep_headers(std::uint32_t first, std::uint32_t last, totals& all);

} // namespace torture
