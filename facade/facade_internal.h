// What the files of the facade share: the state of the one run of a process, and the operations on its tables.
#pragma once

#include "yfs/facade.h"
#include "yfs/status.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <span>

namespace yfs::facade {

// ---- Texts of the reports: error_names.cpp, error_types.cpp ----

struct error_name_row {
    std::int32_t code;
    const char* text;
};
struct error_type_row {
    std::int32_t type;
    const char* text;
};
std::span<const error_name_row> error_names();
std::span<const error_type_row> error_types();

// ---- Reporting: report.cpp. Nothing here fails in a way that the caller sees. ----

extern YZonStatusCallback s_yZonStatusCallback; // null when the host gave none

// One report: the code's text and `message`. A code of 0 comes with an empty text.
void yeYfsLogMessage(ErrorLevel level, ImageToolsErrorName code, const char* message);

// One report with the status of a lower layer in its message.
void setLibError(ImageToolsErrorName code, std::int32_t status);
inline void setLibError(ImageToolsErrorName code, std::uint32_t status)
{
    setLibError(code, static_cast<std::int32_t>(status)); // 0xFFFFFFFF reads -1
}

// A failed precondition, reported; the caller goes on with its own failure.
void yeYfsAssert(const char* text);

// ByteCopy that reports its own failure as 321. A count of 0 is done without a look at the pointers.
std::uint32_t yeYfsMemCpy(void* dst, std::uint64_t dst_size, const void* src, std::uint64_t count);

inline void report(ImageToolsErrorName code, const char* message = "")
{
    yeYfsLogMessage(yfs_level_report, code, message);
}

// Runs one step. Where the memory of a container runs out under it, that is a report and a failed step.
template <typename Step>
bool in_memory(Step&& step)
{
    try {
        return step();
    } catch (const std::bad_alloc&) {
        report(yfs_error_out_of_memory);
        return false;
    }
}

// ---- Calls of the host ----

// One call at a time: a callback that calls back finds the tables in the middle of a change, so it is turned away.
class host_call {
public:
    host_call() : admitted_(!s_busy) { s_busy = true; }
    ~host_call()
    {
        if (admitted_) s_busy = false;
    }
    host_call(const host_call&) = delete;
    host_call& operator=(const host_call&) = delete;

    bool admitted() const { return admitted_; }

private:
    static bool s_busy;
    bool admitted_;
};

// The frame of an exported call: its 8-bit result, and no std::bad_alloc out of it.
template <typename Body>
std::uint8_t serve(Body&& body)
{
    const host_call call;
    return call.admitted() && in_memory(body) ? 1 : 0;
}

// ---- State of the run: state.cpp ----

extern FcsTable s_velorCfgTable;      // the defaults; its list decides which files the host can reach
extern FcsTable s_zonCfgTable;        // values that go before the defaults; after a rebuild the new table
extern FcsTable s_currentValuesTable; // the values in force, private copies
extern FcsTable s_builtZonCfgTable;   // the table that a rebuild makes; empty otherwise
extern std::uint8_t s_fcsInitialized; // the tables are loaded
extern std::uint8_t s_yfsInitialized; // DFS is mounted over the host's YFS image
extern bool s_yZonLoadFileTable;      // the next cfg table to load brings the file table in
extern std::uint32_t s_yZonAfsSkuId;

void release_tables();

// Clears s_yfsInitialized and shuts DFS down, if it was set. False, and reported: DFS wouldn't.
bool shut_down_dfs();

// yeYfsIsVfsDeployed from inside a call.
bool vfs_deployed();

// ---- The bytes of the file table: file_table_buffer.cpp ----

// Takes the place of s_fileTableBuffer. The bytes that the active file table points into stay as long as it does. On
// std::bad_alloc nothing has changed.
void refill_file_table_buffer(const void* data, std::uint32_t size);

// load_file_table from there, for s_yZonAfsSkuId.
std::uint32_t load_file_table_buffer();

// ---- Tables and entries: table_set.cpp, current_values.cpp ----

struct free_memory {
    void operator()(void* ptr) const { std::free(ptr); }
};
using owned_bytes = std::unique_ptr<std::uint8_t[], free_memory>;

// Zeroed bytes of the malloc family; one byte for a count of 0, so that null always means no memory.
inline owned_bytes zeroed_bytes(std::size_t count)
{
    return owned_bytes(static_cast<std::uint8_t*>(std::calloc(count == 0 ? 1 : count, 1)));
}

void yeYfsFreeFileEntry(FcsFileEntry* entry);

struct free_entry {
    void operator()(FcsFileEntry* entry) const { yeYfsFreeFileEntry(entry); }
};
using owned_entry = std::unique_ptr<FcsFileEntry, free_entry>;

// Attribute bits of a file. With a tail, the file in the volume is longer than its value and isn't written back.
inline constexpr file_attributes_t attribute_tail = 0x0001;
inline constexpr file_attributes_t attribute_not_taken_over = 0x0002; // the value in the volume doesn't count
inline constexpr file_attributes_t attribute_long_tail = 0x0040;

inline bool has_tail(const FcsFileEntry& entry)
{
    return (entry.attributes & attribute_tail) != 0;
}

// The host's file: one that is not available has no value, and one that is removed is out of its reach.
inline bool reachable(const FcsFileEntry& entry)
{
    return entry.available != 0 && entry.removed == 0;
}
// The files that go from table to table.
inline bool carried(const FcsFileEntry& entry)
{
    return entry.available != 0 || entry.removed != 0;
}

// Largest payload of a file image, which travels as a 16-bit length with its record in front.
inline constexpr std::uint32_t max_payload = 0xFFFF - sizeof(_cfg_file_entry_t);

// Builds tree and list from `buffer` and `size` of the table, which are its own and stay. False, and reported: the
// table may be partly filled, and the caller frees it.
bool yeYfsLoadFcsTableFiles(FcsTable& table, bool loadData);

// An empty tree for a table that has none. False, and reported.
bool open_empty_tree(FcsTable& table);

// Releases all that the table owns; a second call does nothing. `name`, `count` and `tail` stay.
void yeYfsFreeFcsTable(FcsTable& table);

// The entry of this path, "/home/" put in front where it is missing. Null: none, or reported.
FcsFileEntry* yeYfsFindFileEntryInTable(FcsFileName table, const char* path);

// Adds an entry to tree and list. True: the table owns the entry. False, and reported: it remains the caller's.
bool yeYfsAddNewFileFcs(FcsTable& table, FcsFileEntry* entry, bool checkSize);

// A deep copy, not linked. Null for a null source, or for want of memory.
FcsFileEntry* copyFileEntry(const FcsFileEntry* source);

// Fills `current`, which holds nothing, from the other two. False, and reported: no tree.
bool yeYfsGenerateFcsCurrentsTable(const FcsTable& velor, const FcsTable& zon, FcsTable& current);

// Flushes the tree into a fresh `buffer`. False, and reported.
bool yeYfsSerializeFcsTable(FcsTable& table);

// ---- Start and values: init.cpp, nvar.cpp ----

// False, and reported: a buffer with a size and no data.
bool verifyVelorTable(const char* name, const _commonYZonTable& table);

// yeYfsNvarResize from inside a call, its pointers tested. False, and reported.
bool resize_value(const char* path, void** dataOut, std::uint32_t newSize);

} // namespace yfs::facade
