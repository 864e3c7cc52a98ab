// A whole host run over a chip that fails once: every call of the medium in turn, told or landed or not carried out.
// What a run said it had done is there in the next one; a value is the old or the new one, never a part.
#include "tests/facade/host.h"
#include "tests/support/spi_chip.h"

namespace yfs::test::faults_host {

const std::string paths[] = {"/home/a", "/home/b"};
const blob olds[] = {bytes(5, 1), bytes(300, 2)}, news[] = {bytes(90, 3), bytes(20, 4)};

TEST(HostFaults, EachCallOfTheMediumGoesWrongOnce)
{
    const std::vector<nvar> values = {{paths[0], olds[0], {}, olds[0]}, {paths[1], olds[1], {}, olds[1]}, deployed};
    unsigned faults = 0, refused = 0;
    testing::internal::CaptureStdout(); // a mount that fails says so
    for (const chip_call kind : {chip_call::read, chip_call::write, chip_call::erase}) {
        for (std::uint64_t n = 0, calls = 0; n <= calls; ++n) { // 0: none goes wrong, and they are counted
            for (const chip_fault how : {chip_fault::before, chip_fault::after, chip_fault::silent}) {
                if ((kind == chip_call::read || n == 0) && how != chip_fault::before) continue;
                SCOPED_TRACE(testing::Message() << "call " << n << ", kind " << int(kind) << ", how " << int(how));
                host run(values);
                nor_chip chip(run.yfs);
                const spi_chip_guard guard(chip);
                chip.violations_fail_test(false); // a silent erase leaves cells that a write meets
                if (n != 0) chip.fail(kind, n, how);
                const bool begun = run.init() != 0;
                bool written = begun;
                for (unsigned i = 0; i < 2; ++i) written = written && set_value(paths[i], news[i]);
                written = written && yeYfsNvarTerm(1) != 0;
                const auto& done = chip.counters();
                if (n == 0)
                    calls = kind == chip_call::read ? done.reads : kind == chip_call::write ? done.writes : done.erases;
                EXPECT_EQ(host::reports().empty(), written) << "told if and only if something failed";
                host::end();
                chip.power_on();
                ++faults;
                refused += !written;
                ASSERT_EQ(run.init(), 1);
                for (unsigned i = 0; i < 2; ++i) {
                    const value found = value_of(paths[i]);
                    ASSERT_TRUE(found == news[i] || (!written && found == olds[i])) << paths[i];
                }
            }
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GT(faults, 100U);
    EXPECT_GT(refused, faults / 2);
    std::cout << "host run faults: " << faults << ", runs refused: " << refused << "\n";
}

} // namespace yfs::test::faults_host
