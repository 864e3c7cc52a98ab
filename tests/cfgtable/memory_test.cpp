// Allocation n fails, for n = 1, 2, 3 ... until the operation succeeds: only the handle record and a new file node
// become a status, everything else passes as std::bad_alloc, and the tree stays as it was. Leaks show under the
// sanitizers; here the live allocations are counted as well.
#include "tests/cfgtable/fixture.h"

#include "tests/cfgtable/failing_new.h"

#include <new>

namespace yfs::test {
namespace {

constexpr std::uint32_t thrown = 0xBAD;

template <typename Operation>
std::uint32_t failing_at(std::uint64_t n, Operation operation)
{
    allocation_fails_at = n;
    std::uint32_t status = thrown;
    try {
        status = operation();
    } catch (const std::bad_alloc&) {
    }
    allocation_fails_at = 0;
    return status;
}

const std::string long_name = "/home/" + std::string(30, 'x'); // no std::string holds it without memory

TEST(memory, create_handle)
{
    void* variable = &variable;
    EXPECT_EQ(fcs_status::no_memory, failing_at(1, [&] { return createHandle(&variable); }));
    EXPECT_EQ(&variable, variable);

    std::uint32_t status = thrown;
    for (std::uint64_t n = 2; status != fcs_status::ok; ++n) {
        ASSERT_LT(n, 20U);
        const std::int64_t before = live_allocations;
        status = failing_at(n, [&] { return createHandle(&variable); });
        if (status != fcs_status::ok) {
            // A handle without a tree: fit for closing, and nothing else.
            ASSERT_EQ(thrown, status);
            char name[256];
            std::uint32_t length = 100;
            EXPECT_EQ(fcs_status::null_handle, getFirstFileInRoot(variable, name));
            EXPECT_EQ(fcs_status::null_handle, flush(variable, name, &length));
        }
        EXPECT_EQ(fcs_status::ok, closeHandle(&variable));
        EXPECT_EQ(before, live_allocations) << "allocation " << n;
    }
}

TEST(memory, add_new_file)
{
    const active_table table({{long_name, 0x501}});
    const blob image = make_file_image(0x501, {1, 2, 3});
    for (const bool by_number : {true, false}) {
        fcs tree;
        blob copy = make_file_image(by_number ? 0x501 : 0, {1, 2, 3});
        int as_status = 0, as_exception = 0;
        for (std::uint64_t n = 1;; ++n) {
            ASSERT_LT(n, 20U);
            const std::int64_t before = live_allocations;
            const auto status = failing_at(n, [&] {
                return addNewFile(tree.handle, "", long_name.c_str(), copy.data(), low32(copy.size()), true);
            });
            if (status == fcs_status::ok) break;
            EXPECT_EQ(before, live_allocations) << "allocation " << n;
            EXPECT_TRUE(tree.names().empty());
            ++(status == fcs_status::no_memory ? as_status : as_exception);
            ASSERT_TRUE(status == fcs_status::no_memory || status == thrown) << status;
        }
        EXPECT_GE(as_status, 2); // the node, and its image
        EXPECT_GE(as_exception, 1);
        EXPECT_EQ(image, tree.image(long_name));
        EXPECT_EQ(std::vector<std::string>{long_name}, tree.names());
    }
}

TEST(memory, create_handle_from_structure)
{
    const active_table table({{long_name, 0x501}, {"/b", 0x502}});
    const blob bytes = make_cfg_table({{0x502, payload(100)}, {0x501, payload(50)}});
    int refused = 0, no_memory = 0;
    for (std::uint64_t n = 1;; ++n) {
        ASSERT_LT(n, 60U);
        const std::int64_t before = live_allocations;
        void* variable = nullptr;
        const auto status =
            failing_at(n, [&] { return createHandleFromStructure(&variable, bytes.data(), low32(bytes.size())); });
        refused += status == fcs_status::refused ? 1 : 0;
        no_memory += status == fcs_status::no_memory ? 1 : 0;
        if (status == fcs_status::refused || status == fcs_status::no_memory)
            EXPECT_EQ(nullptr, variable);
        else
            EXPECT_NE(nullptr, variable);
        if (variable) closeHandle(&variable);
        EXPECT_EQ(before, live_allocations) << "allocation " << n;
        if (status == fcs_status::ok) break;
    }
    EXPECT_EQ(1, no_memory);
    EXPECT_GE(refused, 4);
}

TEST(memory, flush_and_delete)
{
    const active_table table({{long_name, 0x501}});
    fcs tree;
    ASSERT_EQ(0U, tree.add(long_name, make_file_image(0x501, payload(50))));
    const blob expected = tree.table();
    blob out(expected.size());
    for (std::uint64_t n = 1;; ++n) {
        ASSERT_LT(n, 20U);
        const std::int64_t before = live_allocations;
        std::uint32_t length = low32(out.size());
        const auto status = failing_at(n, [&] { return flush(tree.handle, out.data(), &length); });
        EXPECT_EQ(before, live_allocations);
        if (status == fcs_status::ok) break;
        EXPECT_EQ(thrown, status);
        EXPECT_EQ(blob(out.size()), out);
    }
    EXPECT_EQ(expected, out);
}

} // namespace
} // namespace yfs::test
