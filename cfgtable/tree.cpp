// The nodes of a cfg table in memory. The children of a directory are always sorted by name: each is inserted at its
// place, and is found by halving.
#include "cfgtable/cfgtable_internal.h"

#include <algorithm>

namespace image_editor {

using yfs::cfgtable::name_of;
using yfs::cfgtable::record_bytes;

namespace {

using node = std::shared_ptr<IFile>;

// Programs can put a null among the children; it counts as unnamed and is never found.
std::string_view child_name(const node& child)
{
    return child ? name_of(*child) : std::string_view();
}

bool comes_last(const std::deque<node>& children, std::string_view name)
{
    return children.empty() || child_name(children.back()) < name;
}

// The place of the first child of that name, or the end.
std::deque<node>::iterator place_of_child(std::deque<node>& children, std::string_view name)
{
    if (comes_last(children, name)) return children.end();
    auto at = std::lower_bound(children.begin(), children.end(), name,
                               [](const node& child, std::string_view wanted) { return child_name(child) < wanted; });
    while (at != children.end() && !*at) ++at;
    return at != children.end() && child_name(*at) == name ? at : children.end();
}

} // namespace

// Arguments by value, as the class operations have them. std::string_view compares bytes as unsigned values.
bool fileCompare(std::shared_ptr<IFile> a, std::shared_ptr<IFile> b) // NOLINT(performance-unnecessary-value-param)
{
    return child_name(a) < child_name(b);
}

IFile::IFile() : name{}, entry(nullptr), parent(nullptr) {}

IFile::IFile(const void* image, unsigned int length) : IFile()
{
    if (!image || length < record_bytes) return;
    yfs::cfgtable::set_image(*this, image, static_cast<const char*>(image) + record_bytes, length - record_bytes);
}

IFile::~IFile() = default;

std::string IFile::getFullPath()
{
    std::string full = path;
    if (!full.empty()) full += '/';
    return full.append(name_of(*this));
}

File::File(void* image, unsigned int length, const char* file_name) : IFile(image, length)
{
    if (file_name) std::memcpy(name, file_name, strnlen(file_name, YFS_FTBL_NAME_LENGTH));
}

File::~File() = default;

bool File::isDirectory()
{
    return false;
}

std::uint32_t File::getSize()
{
    return yfs::low32(data.size());
}

bool File::addFile(std::string, std::shared_ptr<IFile>)
{
    return false;
}

bool File::deleteFile(std::string)
{
    return false;
}

bool File::getFile(std::string, std::shared_ptr<IFile>*)
{
    return false;
}

Directory::Directory() = default;

Directory::Directory(void* image, unsigned int length) : IFile(image, length) {}

Directory::~Directory() = default;

bool Directory::isDirectory()
{
    return true;
}

std::uint32_t Directory::getSize()
{
    std::uint64_t size = data.size() + (name_of(*this).empty() ? 0 : record_bytes);
    for (const node& child : children)
        if (child) size += child->getSize();
    return yfs::low32(size);
}

bool Directory::addFile(std::string, std::shared_ptr<IFile> file)
{
    if (!file) return false;
    const auto at = comes_last(children, name_of(*file))
                        ? children.end()
                        : std::upper_bound(children.begin(), children.end(), file,
                                           [](const node& a, const node& b) { return child_name(a) < child_name(b); });
    children.insert(at, std::move(file));
    return true;
}

bool Directory::deleteFile(std::string path_below)
{
    const std::size_t slash = path_below.find('/');
    const std::string_view head = std::string_view(path_below).substr(0, slash);
    if (head.empty()) return false;
    const auto child = place_of_child(children, head);
    if (child == children.end()) return false;

    const bool names_child = slash == std::string::npos || slash + 1 == path_below.size();
    if (!names_child) return (*child)->deleteFile(path_below.substr(slash + 1));
    children.erase(child);
    return true;
}

bool Directory::getFile(std::string file_name, std::shared_ptr<IFile>* out)
{
    if (!out) return false;
    const auto child = place_of_child(children, file_name);
    if (child == children.end()) return false;
    *out = *child;
    return true;
}

} // namespace image_editor

const std::shared_ptr<image_editor::IFile>* yfs::cfgtable::find_child(image_editor::Directory& directory,
                                                                      std::string_view name)
{
    const auto child = image_editor::place_of_child(directory.children, name);
    return child != directory.children.end() ? &*child : nullptr;
}

bool yfs::cfgtable::comes_last(const image_editor::Directory& directory, std::string_view name)
{
    return image_editor::comes_last(directory.children, name);
}

void yfs::cfgtable::set_image(image_editor::IFile& node, const void* record, const char* payload, std::uint32_t size)
{
    const auto* const head = static_cast<const char*>(record);
    node.data.reserve(std::size_t{record_bytes} + size);
    node.data.assign(head, head + record_bytes);
    if (size != 0) node.data.insert(node.data.end(), payload, payload + size);
    node.entry = static_cast<_cfg_file_entry_t*>(static_cast<void*>(node.data.data()));
    node.entry->size = low16(size);
}
