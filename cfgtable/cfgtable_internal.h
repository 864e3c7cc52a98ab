// What the files of this folder share: names of nodes, the walk, and the record behind a handle.
#pragma once

#include "cfgtable/layout.h"

#include <cstring>
#include <string_view>
#include <typeinfo>

namespace yfs::cfgtable {

// The name of a node. Its field is open to programs, so the terminator isn't relied on.
inline std::string_view name_of(const image_editor::IFile& node)
{
    return {node.name, strnlen(node.name, sizeof node.name)};
}

// Whether the node bears that name.
inline bool is_named(const image_editor::IFile& node, std::string_view name)
{
    if (name.size() > sizeof node.name || std::memcmp(node.name, name.data(), name.size()) != 0) return false;
    return name.size() == sizeof node.name || node.name[name.size()] == '\0';
}

// Sets the walk to the first file, as FileIterator::firstFile does, and gives that node; null if there is none. Unlike
// firstFile it never allocates, so that a change of the tree can't fail once it is made.
const image_editor::IFile* begin_walk(image_editor::FileIterator& walk);

// Goes on to the next node, as FileIterator::nextFile does; null at the end.
image_editor::IFile* next_of_walk(image_editor::FileIterator& walk);

// `node` if it is a directory, else null. Mostly it is one of the two classes themselves, which is seen without a
// search of its bases.
inline image_editor::Directory* as_directory(image_editor::IFile* node)
{
    if (node != nullptr && typeid(*node) == typeid(image_editor::File)) return nullptr;
    if (node != nullptr && typeid(*node) == typeid(image_editor::Directory)) {
        return static_cast<image_editor::Directory*>(node);
    }
    return dynamic_cast<image_editor::Directory*>(node);
}

// The first child of that name, or null.
const std::shared_ptr<image_editor::IFile>* find_child(image_editor::Directory& directory, std::string_view name);

// Whether `name` belongs behind all children, as it mostly does: they come in the order of their names.
bool comes_last(const image_editor::Directory& directory, std::string_view name);

// Writes the tree below `root` as a table, as flush does: the same statuses, and `length` in and out.
std::uint32_t write_table(image_editor::IFile& root, void* buffer, std::uint32_t& length);

// What a handle points to. Both are set from the end of createHandle on.
struct FcsHandle {
    std::shared_ptr<image_editor::Directory> root;
    std::shared_ptr<image_editor::FileIterator> iterator;
};

// The record behind a handle. Null for a null handle, and for one that ran out of memory before it had a tree.
inline FcsHandle* open_handle(void* handle)
{
    auto* record = static_cast<FcsHandle*>(handle);
    return record && record->root && record->iterator ? record : nullptr;
}

// Gives a node without an image one: a record and `size` bytes of payload.
void set_image(image_editor::IFile& node, const void* record, const char* payload, std::uint32_t size);

// Puts in a file behind all others, where its name belongs, from the two parts of a file image: a record and `size`
// bytes of payload. ok | no_memory.
std::uint32_t append_file(FcsHandle& fcs, const void* record, const char* payload, std::uint32_t size,
                          std::string_view name);

// As getFirstFileInRoot and getNextFile; `file` becomes the node that the walk has come to.
std::uint32_t first_file(void* handle, char* out, const image_editor::IFile*& file);
std::uint32_t next_file(void* handle, char* out, const image_editor::IFile*& file);

// As getFileAttributes, of a node with that name.
std::uint32_t attributes_of(const image_editor::IFile& file, const char* name, FcsFileEntry& out);

} // namespace yfs::cfgtable
