// ZonErrors: the two maps from numbers to texts, which the host reads as data too.
#include "facade/facade_internal.h"

std::map<ImageToolsErrorName, std::string> ZonErrors::s_imageToolsErrorNameStringMap;
std::map<ImageToolsErrorType, std::string> ZonErrors::s_imageToolsErrorTypeStringMap;

bool ZonErrors::init()
{
    initStringMaps();
    return true;
}

void ZonErrors::initStringMaps()
{
    s_imageToolsErrorNameStringMap.clear();
    s_imageToolsErrorTypeStringMap.clear();
    auto& names = s_imageToolsErrorNameStringMap; // the rows stand in the order of the maps
    for (const auto& row : yfs::facade::error_names())
        names.emplace_hint(names.end(), static_cast<ImageToolsErrorName>(row.code), row.text);
    auto& types = s_imageToolsErrorTypeStringMap;
    for (const auto& row : yfs::facade::error_types())
        types.emplace_hint(types.end(), static_cast<ImageToolsErrorType>(row.type), row.text);
}

std::string ZonErrors::getErrorNameString(ImageToolsErrorName code)
{
    const auto found = s_imageToolsErrorNameStringMap.find(code);
    return found == s_imageToolsErrorNameStringMap.end() ? "General Error" : found->second;
}
