// One measured operation of the library. Everything that it needs is made by `prepare`, so that `run` is the operation
// alone; both can be called over and over.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// The slowest that is good enough; 0 where there is no mark.
struct mark {
    double seconds = 0;
    const char* in_words = "";
};

struct scenario {
    std::string name;
    std::uint64_t operations = 1; // what one run does, for the figures per operation
    std::uint64_t user_bytes = 0; // contents that one run moves
    mark limit;                   // of one run
    bool changes = true;          // the run leaves another state behind: prepare before every run
    std::function<void()> prepare;
    std::function<void()> run;
};

std::vector<scenario> volume_scenarios();
std::vector<scenario> efs_scenarios();
std::vector<scenario> host_scenarios();
std::vector<scenario> all_scenarios();

// Ends the program with a word on what failed: figures of a failed operation mean nothing.
void expect(bool fine, const char* what);

// Pseudo-random numbers, the same at every run.
class dice {
public:
    explicit dice(std::uint32_t seed) : state(seed) {}
    std::uint32_t below(std::uint32_t bound);
    std::vector<std::uint8_t> bytes(std::size_t count);

private:
    std::uint32_t state;
};

} // namespace bench
