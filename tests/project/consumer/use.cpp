// A program outside the tree, in C++: the classes and the maps, which need their type information from the library.
#include <yfs/yfs.h>

#include <iostream>

int main()
{
    ZonErrors::init();
    const auto root = std::make_shared<image_editor::Directory>();
    std::uint8_t image[15] = {0x01, 0x05, 0, 0, 0, 0, 0, 0, 3, 0, 1, 0, 'a', 'b', 'c'};
    const auto leaf = std::make_shared<image_editor::File>(image, 15U, "a");
    const bool added = root->addFile("", leaf);

    const bool fine =
        added && root->getSize() == 15 && image_editor::FileIterator(root).firstFile() == "a" &&
        dynamic_cast<image_editor::Directory*>(static_cast<image_editor::IFile*>(leaf.get())) == nullptr &&
        ZonErrors::getErrorNameString(yfs_error_load_ftbl) ==
            ZonErrors::s_imageToolsErrorNameStringMap.at(yfs_error_load_ftbl);
    if (!fine) std::cerr << "the classes don't work across the border\n";
    return fine ? 0 : 1;
}
