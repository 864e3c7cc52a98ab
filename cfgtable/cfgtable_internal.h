// What the files of this folder share: names of nodes, the walk, and the record behind a handle.
#pragma once

#include "cfgtable/layout.h"

#include <cstring>
#include <string_view>

namespace yfs::cfgtable {

// The name of a node. Its field is open to programs, so the terminator isn't relied on.
inline std::string_view name_of(const image_editor::IFile& node)
{
    return {node.name, strnlen(node.name, sizeof node.name)};
}

// Sets the walk to the first file, as FileIterator::firstFile does, and gives that node; null if there is none. Unlike
// firstFile it never allocates, so that a change of the tree can't fail once it is made.
const image_editor::IFile* begin_walk(image_editor::FileIterator& walk);

// Writes the tree below `root` as a table, as flush does: the same statuses, and `length` in and out.
std::uint32_t write_table(image_editor::IFile& root, void* buffer, std::uint32_t& length);

// What a handle points to. Both are set from the end of createHandle on.
struct FcsHandle {
    std::shared_ptr<image_editor::IFile> root;
    std::shared_ptr<image_editor::FileIterator> iterator;
};

} // namespace yfs::cfgtable
