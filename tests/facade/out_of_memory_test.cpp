// Every allocation of a whole run fails once, alone and with all that follow. No call lets an exception out, a failure
// is told, nothing leaks, and the next run is as good as the first. The allocator of this program breaks on demand.
#include "tests/facade/host.h"
#include "yfs/dfs.h"

#include <cstdlib>
#include <new>

static std::uint64_t s_until_failure; // 0: not armed
static bool s_fail_on, s_failed;

static bool refuse()
{
    if (s_until_failure == 0 || --s_until_failure != 0) return false;
    if (s_fail_on) s_until_failure = 1;
    return s_failed = true;
}

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* ptr, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* ptr, std::size_t size);

void* __wrap_malloc(std::size_t size)
{
    return refuse() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return refuse() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* ptr, std::size_t size)
{
    return refuse() ? nullptr : __real_realloc(ptr, size);
}
}

// Not inlined: the compiler would take the pair of malloc and free for a mistake.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* const ptr = refuse() ? nullptr : __real_malloc(size);
    if (ptr == nullptr) throw std::bad_alloc();
    return ptr;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return refuse() ? nullptr : __real_malloc(size);
}
[[gnu::noinline]] void operator delete(void* ptr) noexcept
{
    std::free(ptr);
}
[[gnu::noinline]] void operator delete(void* ptr, std::size_t) noexcept
{
    std::free(ptr);
}

namespace yfs::test {
namespace {

int s_told; // reports of one run; the callback allocates nothing

void count_report(ErrorLevel, ImageToolsErrorName, const char*, const char*)
{
    ++s_told;
}

// One run; the new table, if it came to that.
std::optional<blob> whole_run(const YZonInitParams& given, std::uint64_t nth, bool from_there_on)
{
    s_told = 0;
    s_failed = false;
    s_until_failure = nth;
    s_fail_on = from_there_on;
    void* data = nullptr;
    std::uint32_t size = 0;
    bool built = yeYfsYzonInit(&given, count_report) != 0;
    if (built) {
        built = yeYfsNvarResize("/home/a", &data, 3) != 0;
        if (built) std::fill_n(static_cast<std::uint8_t*>(data), 3, std::uint8_t{7});
        built = yeYfsNvarTerm(1) != 0 && built;
        built = built && yeYfsGetBuildZonCfgFcsBuffer(&data, &size) != 0;
    }
    s_until_failure = 0;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    const auto table = built ? std::optional(blob(bytes, bytes + size)) : std::nullopt;
    const int told = s_told;
    yeYfsNvarTerm(0); // ends the run, or says that there is none
    EXPECT_EQ(yeFcsIsInitialized(), 0);
    EXPECT_EQ(yeYfsIsInitialized(), 0);
    s_told = told;
    return table;
}

TEST(OutOfMemory, IsToldAndLeavesTheNextRunWhole)
{
    const host run({{.path = "/home/a", .velor = blob{1}, .zonc = blob{2, 3}, .live = blob{4}},
                    {.path = "/home/b", .velor = blob(30, 5), .live = blob(70, 6)},
                    {.path = "/home/c", .velor = blob(), .zonc = blob(9, 9), .live = blob()}},
                   volume_state::deployed);
    YZonInitParams given = const_cast<host&>(run).params();
    blob image = run.yfs;
    given.yfs.data = image.data();
    const auto reference = whole_run(given, 0, false);
    ASSERT_TRUE(reference.has_value());

    for (const bool from_there_on : {false, true}) {
        std::uint64_t nth = 1;
        for (;; ++nth) {
            SCOPED_TRACE((from_there_on ? "from allocation " : "allocation ") + std::to_string(nth));
            image = run.yfs;
            const auto table = whole_run(given, nth, from_there_on);
            const int told = s_told;
            if (!s_failed) break;
            EXPECT_TRUE(table == reference || told > 0) << "a result that differs, without a word";

            // What the volume holds is whole: the old value or the new one, or the default, where there was no memory
            // to copy the new one into the current values and the second rebuild wrote what stood there.
            ASSERT_EQ(dfs_init(image.data(), volume_bytes), 0U);
            const auto left = volume_file(10);
            EXPECT_TRUE(left == blob{4} || left == blob(3, 7) || (told > 0 && left == blob{1}));
            image = run.yfs;
            ASSERT_EQ(whole_run(given, 0, false), reference);
            ASSERT_EQ(s_told, 0);
        }
        EXPECT_GT(nth, 100U);
        std::printf("%llu allocations of a run failed%s\n", static_cast<unsigned long long>(nth - 1),
                    from_there_on ? ", and all behind each" : "");
    }
}

} // namespace
} // namespace yfs::test
