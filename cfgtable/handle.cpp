// The flat door to one table in memory. The tree is keyed by name, a table by number; here the file table translates.
// A failing operation leaves the tree as it was.
#include "cfgtable/cfgtable_internal.h"
#include "vfs/vfs_internal.h"
#include "yfs/status.h"

#include <new>

using namespace yfs; // the exported names below are global
using cfgtable::FcsHandle;
using cfgtable::open_handle;
using image_editor::File;
using image_editor::IFile;

namespace {

// The file that the walk stands at, if it bears the name as the first of the root's children.
const std::shared_ptr<IFile>* file_of_walk(const FcsHandle& fcs, std::string_view name)
{
    const image_editor::FileIterator& walk = *fcs.iterator;
    const auto& children = fcs.root->children;
    if (walk.current != fcs.root.get() || walk.index < 0) return nullptr;
    const auto at = static_cast<std::size_t>(walk.index);
    if (at >= children.size() || !children[at] || !cfgtable::is_named(*children[at], name)) return nullptr;
    const bool first = at == 0 || (children[at - 1] && !cfgtable::is_named(*children[at - 1], name));
    return first ? &children[at] : nullptr;
}

// Null: no such file. Whoever walks over a tree asks for what the walk has just told.
IFile* find_file(const FcsHandle& fcs, const char* name)
{
    if (!name) return nullptr;
    const std::shared_ptr<IFile>* file = file_of_walk(fcs, name);
    if (!file) file = cfgtable::find_child(*fcs.root, name);
    return file ? file->get() : nullptr;
}

// A file whose image is the record and `size` bytes of payload. Null if there is no memory.
std::shared_ptr<IFile> make_file(const void* record, const char* payload, std::uint32_t size, std::string_view name)
{
    try {
        auto file = std::make_shared<File>(nullptr, 0, nullptr);
        name.copy(file->name, sizeof file->name);
        cfgtable::set_image(*file, record, payload, size);
        return file;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Finds the number of an image without one by `name` and writes it there. False: the file table doesn't have the name.
bool settle_fileno(void* image, const char* name)
{
    auto record = load<_cfg_file_entry_t>(image);
    if (record.fileno != 0) return true;
    const ftbl_file_entry_t* named = vfs::find_by_name(name);
    if (!named) return false;
    record.fileno = named->fileno;
    store(image, record);
    return true;
}

// Puts in a file at the place of its name. ok | name_taken | no_memory.
std::uint32_t put_in(FcsHandle& fcs, const void* image, std::uint32_t length, const char* name)
{
    const bool last = cfgtable::comes_last(*fcs.root, name);
    if (!last && cfgtable::find_child(*fcs.root, name)) return fcs_status::name_taken;
    const char* const payload = static_cast<const char*>(image) + cfgtable::record_bytes;
    const std::uint32_t size = length - cfgtable::record_bytes;
    if (last) return cfgtable::append_file(fcs, image, payload, size, vfs::table_name(name));
    std::shared_ptr<IFile> file = make_file(image, payload, size, vfs::table_name(name));
    if (!file) return fcs_status::no_memory;
    fcs.root->addFile({}, std::move(file));
    return fcs_status::ok;
}

// A node without a name is no file.
std::uint32_t hand_out_name(const image_editor::IFile& node, char* out)
{
    const std::string_view name = cfgtable::name_of(node);
    if (name.empty()) return fcs_status::no_more_files;
    std::memcpy(out, name.data(), name.size());
    out[name.size()] = '\0';
    return fcs_status::ok;
}

// As the walk tells it; its end is no file either.
std::uint32_t hand_out(image_editor::IFile* node, char* out)
{
    if (!node) return fcs_status::no_more_files;
    if (node->path.empty()) return hand_out_name(*node, out);
    const std::string full = node->getFullPath();
    std::memcpy(out, full.c_str(), full.size() + 1);
    return fcs_status::ok;
}

} // namespace

std::uint32_t cfgtable::append_file(FcsHandle& fcs, const void* record, const char* payload, std::uint32_t size,
                                    std::string_view name)
{
    std::shared_ptr<IFile> file = make_file(record, payload, size, name);
    if (!file) return fcs_status::no_memory;
    fcs.root->children.push_back(std::move(file));
    return fcs_status::ok;
}

std::uint32_t cfgtable::first_file(void* handle, char* out, const IFile*& file)
{
    FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!out) return fcs_status::null_pointer;
    file = begin_walk(*fcs->iterator);
    if (!file) return fcs_status::no_more_files;
    return hand_out_name(*file, out);
}

std::uint32_t cfgtable::next_file(void* handle, char* out, const IFile*& file)
{
    FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!out) return fcs_status::null_pointer;
    IFile* const next = next_of_walk(*fcs->iterator);
    file = next;
    return hand_out(next, out);
}

std::uint32_t cfgtable::attributes_of(const IFile& file, const char* name, FcsFileEntry& out)
{
    if (file.data.size() < record_bytes) return fcs_status::not_in_table;
    out.entry = load<_cfg_file_entry_t>(file.data.data());
    const ftbl_file_entry_t* known = vfs::find_by_name(name);
    if (!known) return fcs_status::not_in_table;
    out.attributes = known->attributes;
    out.maxSize = known->maxSize;
    return fcs_status::ok;
}

std::uint32_t createHandle(void** variable)
{
    if (!variable) return fcs_status::null_pointer;
    auto* fcs = new (std::nothrow) FcsHandle;
    if (!fcs) return fcs_status::no_memory;
    *variable = fcs;
    fcs->root = std::make_shared<image_editor::Directory>();
    fcs->iterator = std::make_shared<image_editor::FileIterator>(fcs->root);
    return fcs_status::ok;
}

std::uint32_t createHandleFromStructure(void** variable, const void* table, std::uint32_t length)
{
    if (!variable || !table) return fcs_status::null_pointer;
    if (const auto st = createHandle(variable); st != fcs_status::ok) return st;
    if (!loadDataFromFcsBuffer(*variable, table, length)) {
        closeHandle(variable);
        return fcs_status::refused;
    }
    return fcs_status::ok;
}

std::uint32_t closeHandle(void** variable)
{
    if (!variable) return fcs_status::null_pointer;
    auto* fcs = static_cast<FcsHandle*>(*variable);
    if (!fcs) return fcs_status::null_handle;
    fcs->iterator.reset();
    fcs->root.reset();
    delete fcs;
    *variable = nullptr;
    return fcs_status::ok;
}

std::uint32_t addNewFile(void* handle, const char* /*folder*/, const char* name, void* image, std::uint32_t length,
                         bool check_size)
{
    FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    const std::uint16_t image_bytes = low16(length);
    if (image_bytes < cfgtable::record_bytes) return fcs_status::bad_length;
    if (!image || !name) return fcs_status::null_pointer;

    if (!settle_fileno(image, name)) return fcs_status::unknown_name;
    const ftbl_file_entry_t* known = vfs::find_by_fileno(load<_cfg_file_entry_t>(image).fileno);
    if (!known) return fcs_status::not_in_table;
    if (check_size && image_bytes > std::uint64_t{known->maxSize} + cfgtable::record_bytes)
        return fcs_status::above_max_size;
    if (const auto status = put_in(*fcs, image, image_bytes, name); status != fcs_status::ok) return status;
    cfgtable::begin_walk(*fcs->iterator);
    return fcs_status::ok;
}

std::uint32_t deleteFile(void* handle, const char* path)
{
    FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!path || !fcs->root->deleteFile(path)) return fcs_status::no_such_file;
    cfgtable::begin_walk(*fcs->iterator);
    return fcs_status::ok;
}

std::uint32_t getFileData(void* handle, const char* name, void* buffer, std::uint32_t* length)
{
    const FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!buffer || !length) return fcs_status::null_pointer;
    const IFile* const file = find_file(*fcs, name);
    if (!file) return fcs_status::no_such_file;

    const std::uint32_t room = *length;
    *length = low32(file->data.size());
    if (room < *length) return fcs_status::bad_length;
    if (*length != 0) std::memcpy(buffer, file->data.data(), *length);
    return fcs_status::ok;
}

std::uint32_t getFileAttributes(void* handle, const char* name, FcsFileEntry* out)
{
    const FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!out) return fcs_status::null_pointer;
    const IFile* const file = find_file(*fcs, name);
    if (!file) return fcs_status::no_such_file;
    return cfgtable::attributes_of(*file, name, *out);
}

std::uint32_t getFirstFileInRoot(void* handle, char* out)
{
    const IFile* file = nullptr;
    return cfgtable::first_file(handle, out, file);
}

std::uint32_t getNextFile(void* handle, char* out)
{
    const IFile* file = nullptr;
    return cfgtable::next_file(handle, out, file);
}

std::uint32_t flush(void* handle, void* buffer, std::uint32_t* length)
{
    FcsHandle* fcs = open_handle(handle);
    if (!fcs) return fcs_status::null_handle;
    if (!length) return fcs_status::null_pointer;
    return cfgtable::write_table(*fcs->root, buffer, *length);
}

bool validateAttributs(const _cfg_file_entry_t* entry)
{
    return entry != nullptr;
}
