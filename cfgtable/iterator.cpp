// The walk over a tree: parents before children, each directory's children in their order. A position is an index, so
// that a tree that changed under the walk can shift it but never lead it out of bounds.
#include "cfgtable/cfgtable_internal.h"

#include <algorithm>

namespace yfs::cfgtable {

const image_editor::IFile* begin_walk(image_editor::FileIterator& walk)
{
    image_editor::Directory* const top = as_directory(walk.root.get());
    if (!top || !top->isDirectory()) return nullptr;
    walk.current = top;
    if (top->children.empty()) return nullptr;
    walk.index = 0;
    return top->children.front().get();
}

} // namespace yfs::cfgtable

namespace image_editor {

using yfs::cfgtable::name_of;

namespace {

// Null for a position where there is no child.
IFile* child_at(const Directory& directory, std::int64_t index)
{
    if (index < 0 || static_cast<std::uint64_t>(index) >= directory.children.size()) return nullptr;
    return directory.children[static_cast<std::size_t>(index)].get();
}

Directory* as_filled_directory(IFile* node)
{
    Directory* const directory = yfs::cfgtable::as_directory(node);
    return directory && !directory->children.empty() ? directory : nullptr;
}

// The place of the first child of that name in its parent, or -1.
std::int32_t place_of(const Directory& parent, std::string_view name)
{
    const auto& children = parent.children;
    const auto at = std::find_if(children.begin(), children.end(),
                                 [name](const auto& child) { return child && name_of(*child) == name; });
    return at != children.end() ? static_cast<std::int32_t>(at - children.begin()) : -1;
}

bool has_more(const FileIterator& walk)
{
    return walk.index + std::int64_t{1} < static_cast<std::int64_t>(walk.current->children.size());
}

} // namespace

FileIterator::FileIterator(std::shared_ptr<IFile> tree) : root(std::move(tree)), current(nullptr), index(0)
{
    yfs::cfgtable::begin_walk(*this);
}

FileIterator::~FileIterator() = default;

std::string FileIterator::firstFile()
{
    const IFile* first = yfs::cfgtable::begin_walk(*this);
    return first ? std::string(name_of(*first)) : std::string();
}

std::string FileIterator::nextFile()
{
    IFile* const next = yfs::cfgtable::next_of_walk(*this);
    return next ? next->getFullPath() : std::string();
}

} // namespace image_editor

image_editor::IFile* yfs::cfgtable::next_of_walk(image_editor::FileIterator& walk)
{
    using namespace image_editor;
    if (!walk.current) return nullptr;
    IFile* here = child_at(*walk.current, walk.index);
    if (!here) return nullptr;
    if (Directory* below = as_filled_directory(here)) {
        walk.current = below;
        walk.index = 0;
        return child_at(*walk.current, walk.index);
    }
    if (has_more(walk)) return child_at(*walk.current, ++walk.index);

    Directory* const deepest = walk.current;
    const std::int32_t last = walk.index;
    for (Directory* up = walk.current->parent; up; up = walk.current->parent) {
        walk.index = place_of(*up, name_of(*walk.current));
        if (walk.index < 0) return nullptr;
        walk.current = up;
        if (has_more(walk)) return child_at(*walk.current, ++walk.index);
    }
    // The walk is over. It stays at its last node: from a directory further up the next call would descend once more.
    walk.current = deepest;
    walk.index = last;
    return nullptr;
}
