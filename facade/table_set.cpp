// A table in its two forms, kept in step: a tree behind a handle, and a list of entries whose data the host can reach.
// The list owns its entries; the tree has copies of its own.
#include "cfgtable/cfgtable_internal.h"
#include "facade/facade_internal.h"
#include "facade/name_index.h"

#include <algorithm>
#include <cstring>

namespace yfs::facade {

static constexpr std::uint32_t record_bytes = sizeof(_cfg_file_entry_t);

static const char home[] = "/home/";
static constexpr std::size_t home_length = sizeof home - 1;

// Up to the first character that differs, which may be the path's end.
static bool stands_in_home(const char* path)
{
    std::size_t same = 0;
    while (same < home_length && path[same] == home[same]) ++same;
    return same == home_length;
}

// Bytes of a file image for as long as a call takes: short ones, as most are, need no memory of their own.
class image_bytes {
public:
    explicit image_bytes(std::size_t count)
    {
        if (count > sizeof short_) long_ = zeroed_bytes(count);
        data_ = count > sizeof short_ ? long_.get() : short_;
        if (count <= sizeof short_) std::memset(short_, 0, count);
    }
    std::uint8_t* get() const { return data_; } // null: no memory

private:
    std::uint8_t short_[512];
    owned_bytes long_;
    std::uint8_t* data_;
};

// ---- Entries ----

void yeYfsFreeFileEntry(FcsFileEntry* entry)
{
    if (entry == nullptr) return;
    std::free(entry->data);
    std::free(entry);
}

static owned_entry new_entry()
{
    owned_entry entry(static_cast<FcsFileEntry*>(std::malloc(sizeof(FcsFileEntry))));
    if (entry != nullptr) *entry = {};
    return entry;
}

FcsFileEntry* copyFileEntry(const FcsFileEntry* source)
{
    if (source == nullptr) return nullptr;
    owned_entry copy(static_cast<FcsFileEntry*>(std::malloc(sizeof(FcsFileEntry)))); // filled at once
    if (copy == nullptr) return nullptr;
    std::memcpy(copy.get(), source, sizeof *source);
    copy->data = nullptr;
    copy->linked = 0;
    copy->prev = nullptr;
    copy->next = nullptr;
    if (source->data != nullptr && source->size != 0) {
        copy->data = std::malloc(source->size);
        if (copy->data == nullptr) {
            report(yfs_error_out_of_memory);
            return nullptr;
        }
        std::memcpy(copy->data, source->data, source->size);
    }
    return copy.release();
}

static void append(FcsTable& table, FcsFileEntry* entry)
{
    entry->linked = 1;
    entry->prev = table.head == nullptr ? nullptr : table.tail;
    entry->next = nullptr;
    if (table.head == nullptr) {
        table.head = entry;
    } else {
        table.tail->next = entry;
    }
    table.tail = entry;
    table.count = table.count + 1;
}

// ---- Trees ----

// The handle operations take the address of an aligned variable, which a field of the record isn't.
static void close_tree(FcsTable& table)
{
    void* handle = table.handle;
    table.handle = nullptr;
    if (handle != nullptr) closeHandle(&handle);
}

// Opens a tree by `open`, createHandle or the like. False, and reported.
template <typename Open>
static bool open_tree(FcsTable& table, Open&& open)
{
    void* handle = nullptr;
    const bool opened = in_memory([&] {
        const std::uint32_t status = open(&handle);
        if (status != fcs_status::ok) setLibError(yfs_error_create_fcs_handle, status);
        return status == fcs_status::ok;
    });
    table.handle = handle;
    if (!opened) close_tree(table);
    return opened;
}

bool open_empty_tree(FcsTable& table)
{
    return open_tree(table, createHandle);
}

void yeYfsFreeFcsTable(FcsTable& table)
{
    close_tree(table);
    if (table.buffer != nullptr) {
        std::free(table.buffer);
        table.buffer = nullptr;
        table.size = 0;
    }
    forget_names(table);
    FcsFileEntry* entry = table.head;
    table.head = nullptr;
    while (entry != nullptr) {
        FcsFileEntry* const next = entry->next;
        yeYfsFreeFileEntry(entry);
        entry = next;
    }
}

// ---- From the serialised form to tree and list ----

static bool bring_in_file_table()
{
    if (!s_yZonLoadFileTable) return true;
    return in_memory([] {
        const std::uint32_t status = load_file_table_buffer();
        if (status != 0) {
            setLibError(yfs_error_load_ftbl, status);
            return false;
        }
        s_yZonLoadFileTable = false;
        return true;
    });
}

// Fetches the payload of `entry` out of its node in the tree. False, and reported.
static bool fetch_data(const image_editor::IFile& file, FcsFileEntry& entry)
{
    owned_bytes data(static_cast<std::uint8_t*>(std::malloc(entry.size)));
    if (data == nullptr) {
        report(yfs_error_out_of_memory);
        return false;
    }
    if (yeYfsMemCpy(data.get(), entry.size, file.data.data() + record_bytes, entry.size) != 0) return false;
    entry.data = data.release();
    return true;
}

// Lists the files of the tree in its order. False, and reported.
static bool list_files(FcsTable& table, bool loadData)
{
    for (;;) {
        owned_entry entry = new_entry();
        if (entry == nullptr) {
            report(yfs_error_data_pointer);
            return false;
        }
        const bool first = table.head == nullptr;
        if (first) table.count = 0;
        const image_editor::IFile* file = nullptr; // spares a search by its name
        std::uint32_t status = first ? cfgtable::first_file(table.handle, entry->name, file)
                                     : cfgtable::next_file(table.handle, entry->name, file);
        if (status == fcs_status::no_more_files) return true;
        if (status != fcs_status::ok) {
            setLibError(yfs_error_get_fcs_file, status);
            return false;
        }
        status = cfgtable::attributes_of(*file, entry->name, *entry);
        if (status != fcs_status::ok) {
            yeYfsFreeFcsTable(table);
            setLibError(yfs_error_get_fcs_attributes, status);
            return false;
        }
        entry->size = entry->entry.size;
        entry->available = entry->entry.flags & 1U;
        if (loadData && entry->available != 0 && entry->size != 0 && !fetch_data(*file, *entry)) return false;
        append(table, entry.release());
    }
}

bool yeYfsLoadFcsTableFiles(FcsTable& table, bool loadData)
{
    // A cfg table holds numbers only: without the file table it would read as empty.
    if (!bring_in_file_table()) return false;
    const auto open = [&](void** handle) { return createHandleFromStructure(handle, table.buffer, table.size); };
    if (!open_tree(table, open)) return false;
    if (in_memory([&] { return list_files(table, loadData); })) return true;
    report(yfs_error_process_fcs_entries);
    return false;
}

// ---- Looking up and adding ----

FcsFileEntry* yeYfsFindFileEntryInTable(FcsFileName table, const char* path)
{
    if (path == nullptr) {
        report(yfs_error_corrupted_buffer, "Invalid NVAR path");
        return nullptr;
    }
    const FcsTable* searched = nullptr;
    switch (table) {
    case FCS_VELOR_CFG:
        searched = &s_velorCfgTable;
        break;
    case FCS_ZON_CFG:
        searched = &s_zonCfgTable;
        break;
    case FCS_CURRENT_VALUES:
        searched = &s_currentValuesTable;
        break;
    default:
        report(yfs_error_invalid_fcs_file);
        return nullptr;
    }
    if (s_fcsInitialized == 0 || searched->count == 0) return nullptr;
    if (stands_in_home(path)) return find_by_name(*searched, path);

    char full[sizeof(FcsFileEntry::name) + 1] = {}; // names are compared over the length of the field
    std::memcpy(full, home, home_length);
    std::memcpy(full + home_length, path, strnlen(path, sizeof full - 1 - home_length));
    return find_by_name(*searched, full);
}

// Puts the file into the tree, under its name with "/" behind. False, and reported.
static bool add_to_tree(void* handle, const FcsFileEntry& entry, bool checkSize)
{
    // The length that addNewFile takes is cut to 16 bits: a longer value would go in shortened.
    if (entry.size > max_payload) {
        setLibError(yfs_error_add_fcs_file, fcs_status::bad_length);
        return false;
    }
    const std::uint32_t length = record_bytes + entry.size;
    const image_bytes image(length);
    if (image.get() == nullptr) {
        report(yfs_error_out_of_memory);
        return false;
    }
    if (yeYfsMemCpy(image.get(), length, &entry, record_bytes) != 0) return false;
    const std::uint32_t data_bytes = entry.data == nullptr ? 0 : entry.size;
    if (yeYfsMemCpy(image.get() + record_bytes, entry.size, entry.data, data_bytes) != 0) return false;

    char tree_name[sizeof(FcsFileEntry::name) + 2] = {};
    std::memcpy(tree_name, entry.name, strnlen(entry.name, sizeof entry.name));
    tree_name[std::strlen(tree_name)] = '/';
    const std::uint32_t status = addNewFile(handle, "", tree_name, image.get(), length, checkSize);
    if (status != fcs_status::ok) setLibError(yfs_error_add_fcs_file, status);
    return status == fcs_status::ok;
}

bool yeYfsAddNewFileFcs(FcsTable& table, FcsFileEntry* entry, bool checkSize)
{
    if (table.handle == nullptr || entry == nullptr) {
        yeYfsAssert("Invalid FCS handle or fileEntry pointer");
        return false;
    }
    if (entry->linked != 0) {
        report(yfs_error_entry_in_use);
        return false;
    }
    if (find_by_name(table, entry->name) != nullptr) {
        report(yfs_error_duplicate_file);
        return false;
    }
    if (!in_memory([&] { return add_to_tree(table.handle, *entry, checkSize); })) return false;
    append(table, entry);
    return true;
}

// ---- From the tree to the serialised form ----

bool yeYfsSerializeFcsTable(FcsTable& table)
{
    std::free(table.buffer);
    table.buffer = nullptr;
    table.size = 0;

    return in_memory([&] {
        std::uint32_t size = 0;
        std::uint32_t status = flush(table.handle, nullptr, &size);
        if (status != fcs_status::bad_length) {
            setLibError(yfs_error_flush_fcs, status);
            return false;
        }
        owned_bytes buffer = zeroed_bytes(size);
        if (buffer == nullptr) {
            report(yfs_error_out_of_memory);
            return false;
        }
        status = flush(table.handle, buffer.get(), &size);
        if (status != fcs_status::ok) {
            setLibError(yfs_error_flush_fcs, status);
            return false;
        }
        table.buffer = buffer.release();
        table.size = size;
        return true;
    });
}

} // namespace yfs::facade
