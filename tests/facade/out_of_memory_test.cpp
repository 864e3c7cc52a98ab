// Every allocation of a whole run fails once, alone and with all that follow. No call lets an exception out, a failure
// is told, nothing leaks, and the next run is as good as the first. The allocator of this program breaks on demand.
#include "tests/facade/host.h"
#include "yfs/status.h"

#include <bitset>
#include <climits>
#include <cstdlib>
#include <new>

static long s_ahead = LONG_MAX; // allocations before the first to fail; negative once that has come
static long s_failing;          // how many fail in a row

static bool refuse()
{
    return s_ahead-- <= 0 && s_ahead >= -s_failing;
}

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* ptr, std::size_t size);

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

// Not inlined: the compiler would take the pair of malloc and delete for a mistake, as the address sanitizer does.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* const ptr = std::malloc(size);
    if (ptr == nullptr) throw std::bad_alloc();
    return ptr;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size);
}
extern "C" const char* __asan_default_options()
{
    return "alloc_dealloc_mismatch=0";
}

namespace yfs::test::facade_out_of_memory {

int s_told;                              // reports of one run; the callback allocates nothing
std::bitset<yfs_error_last + 1> s_codes; // told in any run
long s_left;                             // of the allocations ahead, at its end

// One run up to the rebuild, and the new table, if it came to that.
value whole_run(host& run, const blob& image, long ahead, long failing)
{
    host::end();
    run.yfs = image;
    void* data = nullptr;
    s_told = 0, s_ahead = ahead, s_failing = failing;
    const auto count = [](ErrorLevel, ImageToolsErrorName code, const char*, const char*) {
        ++s_told, s_codes.set(code);
    };
    const bool begun = run.init(count) != 0;
    const bool set = begun && yeYfsNvarResize("/home/a", &data, 3) != 0;
    if (set) std::memset(data, 7, 3);
    const bool built = begun && yeYfsNvarTerm(1) != 0 && set;
    s_left = std::exchange(s_ahead, LONG_MAX);
    return built ? handed_out(yeYfsGetBuildZonCfgFcsBuffer) : std::nullopt;
}

TEST(OutOfMemory, IsToldAndLeavesTheNextRunWhole)
{
    for (const unsigned more : {0U, 40U}) { // more values: indexes grow, one has a long payload
        std::vector<nvar> values = {{"/home/a", blob{1}, blob{2, 3}, blob{4}},
                                    {"/home/b", blob(30, 5), {}, blob(70, 6)},
                                    {"/home/c", blob{}, blob(9, 9), blob{}},
                                    deployed};
        for (unsigned i = 0; i < more; ++i)
            values.push_back({"/home/x" + std::to_string(i), blob(i * 20, 1), {}, blob{3}});
        host run(values);
        const blob image = run.yfs;
        const value reference = whole_run(run, image, LONG_MAX, 0);
        ASSERT_TRUE(reference.has_value());
        const long allocations = LONG_MAX - s_left;
        for (const long failing : {1L, LONG_MAX}) {
            for (long ahead = 0; ahead < allocations; ahead += more == 0 ? 1 : 23) {
                SCOPED_TRACE(testing::Message() << failing << " failing behind " << ahead);
                const value table = whole_run(run, image, ahead, failing);
                ASSERT_LT(s_left, 0) << "as many allocations each time";
                ASSERT_TRUE(table == reference || s_told > 0) << "a result that differs, without a word";
                // What the volume holds is whole: the old value or the new one, or the default, where there was no
                // memory to copy the new one into the current values and the second rebuild wrote what stood there.
                host::end();
                ASSERT_EQ(run.init(), 1);
                const value left = value_of("/home/a");
                ASSERT_TRUE(left == blob{4} || left == blob(3, 7) || (s_told > 0 && left == blob{1}));
                ASSERT_EQ(whole_run(run, image, LONG_MAX, 0), reference);
                ASSERT_EQ(s_told, 0);
            }
        }
    }
    for (const unsigned code : {320U, 321U, 325U, 343U, 344U, 345U}) EXPECT_TRUE(s_codes.test(code)) << code;
}

TEST(OutOfMemory, OfAHandleAndAFile)
{
    host run({{"/home/a", blob{1}}});
    ASSERT_EQ(run.init(), 1);
    const auto starved = [](auto call) {
        s_ahead = 0, s_failing = 1;
        const std::uint32_t status = call();
        s_ahead = LONG_MAX;
        return status;
    };
    void* handle = nullptr;
    char name[256];
    std::uint32_t length = 200;
    for (long ahead = 1; ahead < 5; ++ahead) { // the tree and the walk: fit for nothing but its end
        s_ahead = ahead, s_failing = 1;
        EXPECT_THROW(createHandle(&handle), std::bad_alloc) << ahead;
        s_ahead = LONG_MAX;
        FcsFileEntry entry;
        for (const std::uint32_t status :
             {addNewFile(handle, "", "a", name, 12, false), deleteFile(handle, "a"), getNextFile(handle, name),
              getFileData(handle, "a", name, &length), getFileAttributes(handle, "a", &entry),
              getFirstFileInRoot(handle, name), flush(handle, name, &length)})
            EXPECT_EQ(status, fcs_status::null_handle);
        EXPECT_FALSE(loadDataFromFcsBuffer(handle, make_cfg_table({{0x500}}).data(), 16));
        EXPECT_EQ(closeHandle(&handle), 0U);
    }
    EXPECT_EQ(starved([&] { return createHandle(&handle); }), fcs_status::no_memory);
    ASSERT_TRUE(handle == nullptr && createHandle(&handle) == 0);
    blob image = make_file_image(0x500, {1});
    EXPECT_EQ(starved([&] { return addNewFile(handle, "", "/home/a", image.data(), 13, true); }),
              fcs_status::no_memory);
    EXPECT_TRUE(getFirstFileInRoot(handle, name) == fcs_status::no_more_files && closeHandle(&handle) == 0);
}

} // namespace yfs::test::facade_out_of_memory
