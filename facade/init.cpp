// The start of a run: tables first, then the volumes, then the values that a deployed volume holds. What needs nothing
// but tables works as soon as the tables stand, whatever becomes of the volumes.
#include "facade/facade_internal.h"

#include "yfs/dfs.h"
#include "yfs/efs.h"

#include <cstdio>
#include <cstring>

namespace yfs::facade {

// The zonc.cfg partition in front of its table. The host's own bytes are kept out of it.
struct zonc_header { // at
    std::uint8_t unread_0[8];
    le32 length; //  8  of the table behind the header
    std::uint8_t unread_12[4];
};
static_assert(sizeof(zonc_header) == 16 && offsetof(zonc_header, length) == 8 && flash_record<zonc_header>);

bool verifyVelorTable(const char* name, const _commonYZonTable& table)
{
    if (table.size == 0 || table.data != nullptr) return true;
    char message[128];
    std::snprintf(message, sizeof message, "Invalid table %s. The table is loaded but data is empty.", name);
    report(yfs_error_initialize_yfs, message);
    return false;
}

static bool buffers_usable(const YZonInitParams& given)
{
    if (given.velorCfg.size == 0) {
        report(yfs_error_load_velor_cfg, "Velor.cfg table is mandatory for loading by Y-ZON.");
        return false;
    }
    if (!verifyVelorTable("Velor.cfg table", given.velorCfg) || !verifyVelorTable("zonc.cfg", given.zonCfg) ||
        !verifyVelorTable("ftbl.bin", given.ftbl) || !verifyVelorTable("YFS", given.yfs) ||
        !verifyVelorTable("EFS", given.efs))
        return false;
    if (given.ftbl.size == 0) {
        report(yfs_error_load_ftbl, "ftbl data must be defined for flat VFS, but not load by Y-ZON.");
        return false;
    }
    return true;
}

// Copies a serialised table into `table` and loads it. False, and reported.
static bool load_copy(FcsTable& table, const std::uint8_t* bytes, std::uint32_t size)
{
    table.size = size;
    table.buffer = zeroed_bytes(size).release();
    if (table.buffer == nullptr) {
        report(yfs_error_out_of_memory);
        return false;
    }
    return yeYfsMemCpy(table.buffer, size, bytes, size) == 0 && yeYfsLoadFcsTableFiles(table, true);
}

static bool load_zonc_cfg(const _commonYZonTable& partition)
{
    if (partition.size == 0) {
        s_zonCfgTable.name = FCS_ZON_CFG;
        return open_empty_tree(s_zonCfgTable);
    }
    if (partition.size < sizeof(zonc_header)) {
        report(yfs_error_buffer_parsing, "Invalid ZONC partition length");
        return false;
    }
    const std::uint32_t length = load<zonc_header>(partition.data).length;
    if (length > partition.size - sizeof(zonc_header)) {
        report(yfs_error_initialize_yfs, "Invalid ZONC partition size.");
        return false;
    }
    return load_copy(s_zonCfgTable, static_cast<const std::uint8_t*>(partition.data) + sizeof(zonc_header), length);
}

// All three tables, or none. False, and reported.
static bool load_tables(const YZonInitParams& given)
{
    s_yZonLoadFileTable = true;
    s_yZonAfsSkuId = given.afsSkuId;
    s_velorCfgTable = {};
    s_zonCfgTable = {};
    const bool loaded =
        load_copy(s_velorCfgTable, static_cast<const std::uint8_t*>(given.velorCfg.data), given.velorCfg.size) &&
        load_zonc_cfg(given.zonCfg);
    if (loaded && yeYfsGenerateFcsCurrentsTable(s_velorCfgTable, s_zonCfgTable, s_currentValuesTable)) {
        s_fcsInitialized = 1;
        return true;
    }
    // With the flag clear no later call could release them.
    release_tables();
    if (loaded) report(yfs_error_generate_current_values);
    return false;
}

static bool mount_yfs(const _commonYZonTable& image)
{
    if (image.size == 0) return true;
    const std::uint32_t status = dfs_init(image.data, image.size);
    if (status != afs_status::ok) {
        std::printf("dfs_init failed\n");
        setLibError(yfs_error_initialize, status);
        report(yfs_error_initialize_yfs);
        return false;
    }
    s_yfsInitialized = 1;
    return true;
}

static bool mount_efs(const _commonYZonTable& image)
{
    if (image.size == 0) return true;
    // The mount takes the size from the file table, not from the buffer, so a shorter one must not come near it.
    if (EFS_get_efs_size() <= image.size && EFS_init_tools(image.data) == efs_status::ok) return true;
    shut_down_dfs();
    report(yfs_error_initialize_efs);
    return false;
}

// Bytes behind the value of a file in the volume that aren't part of it.
static std::uint32_t tail_bytes(const FcsFileEntry& entry)
{
    if (!has_tail(entry)) return 0;
    return (entry.attributes & attribute_long_tail) != 0 ? 56 : 40;
}

// Takes one value over into the current table. False, perhaps reported.
static bool take_over(const FcsFileEntry& entry)
{
    std::uint32_t number = 0;
    if ((entry.attributes & attribute_not_taken_over) != 0) return true;
    if (pathToFileNumber(entry.name, &number) != 0 || number == 0) return true;

    std::uint32_t size = 0;
    if (dfs_getsize(number, &size) != afs_status::ok || size < tail_bytes(entry)) return false;
    size -= tail_bytes(entry);
    void* data = nullptr;
    if (!resize_value(entry.name, &data, size)) return false;
    if (size == 0) return true;
    std::uint32_t length = size;
    return dfs_read(number, 0, &length, data) == afs_status::ok && length == size;
}

static bool take_over_values()
{
    for (const FcsFileEntry* entry = s_velorCfgTable.head; entry != nullptr; entry = entry->next) {
        if (reachable(*entry) && !in_memory([&] { return take_over(*entry); })) return false;
    }
    return true;
}

static bool mount_volumes(const YZonInitParams& given)
{
    // EFS runs where this run has an image for it; the one of an earlier run may be gone from memory.
    efs_ctx.initialized = 0;
    return mount_yfs(given.yfs) && mount_efs(given.efs);
}

static bool start_run(const YZonInitParams& given)
{
    if (!buffers_usable(given)) return false;
    refill_file_table_buffer(given.ftbl.data, given.ftbl.size);
    if (!load_tables(given) || !mount_volumes(given)) return false;
    if (!vfs_deployed() || take_over_values()) return true;
    shut_down_dfs();
    report(yfs_error_initialize_yfs);
    return false;
}

} // namespace yfs::facade

using namespace yfs::facade;

std::uint8_t yeYfsYzonInit(const YZonInitParams* params, YZonStatusCallback callback)
{
    return serve([&] {
        // The first report has its text and its callback already, also the one that there is no memory for the texts.
        s_yZonStatusCallback = callback;
        const bool texts = in_memory(ZonErrors::init);
        shut_down_dfs();
        release_tables();
        return texts && start_run(params == nullptr ? YZonInitParams{} : *params);
    });
}
