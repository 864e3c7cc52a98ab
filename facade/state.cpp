// The records of the one run of a process, how they end, and the queries that the host may make about them.
#include "facade/facade_internal.h"
#include "facade/name_index.h"

#include "yfs/dfs.h"
#include "yfs/efs.h"

namespace yfs::facade {

FcsTable s_velorCfgTable{};
FcsTable s_zonCfgTable{};
FcsTable s_currentValuesTable{};
FcsTable s_builtZonCfgTable{};
std::uint8_t s_fcsInitialized = 0;
std::uint8_t s_yfsInitialized = 0;
bool s_yZonLoadFileTable = false;
std::uint32_t s_yZonAfsSkuId = 0;

bool host_call::s_busy = false;

void release_tables()
{
    for (FcsTable* table : {&s_builtZonCfgTable, &s_zonCfgTable, &s_velorCfgTable, &s_currentValuesTable})
        yeYfsFreeFcsTable(*table);
    s_fcsInitialized = 0;
}

bool shut_down_dfs()
{
    if (s_yfsInitialized == 0) return true;
    s_yfsInitialized = 0;
    const std::uint32_t status = dfs_terminate();
    if (status != afs_status::ok) setLibError(yfs_error_terminate_yfs, status);
    return status == afs_status::ok;
}

bool vfs_deployed()
{
    if (s_yfsInitialized == 0) return false;
    std::uint32_t number = 0;
    if (pathToFileNumber("/home/qrd/deploy", &number) != 0) return false;
    std::uint32_t size = 0;
    return dfs_getsize(number, &size) == afs_status::ok && size != 0;
}

} // namespace yfs::facade

using namespace yfs::facade;

std::uint8_t yeYfsIsInitialized()
{
    return s_yfsInitialized;
}

std::uint8_t yeFcsIsInitialized()
{
    return s_fcsInitialized;
}

bool yeYfsIsVfsDeployed()
{
    return serve(vfs_deployed) != 0;
}

std::uint32_t yeYfsGetEfsSize()
{
    return EFS_get_efs_size();
}

FcsFileName yeYfsGetFcsFileNameMapping(std::uint32_t index)
{
    switch (index) {
    case 0:
        return FCS_VELOR_CFG;
    case 1:
        return FCS_ZON_CFG;
    case 2:
        return FCS_CURRENT_VALUES;
    default:
        break;
    }
    const host_call call;
    if (call.admitted()) report(yfs_error_none, "Invalid fcsFileNameMap value");
    return FCS_CURRENT_VALUES;
}

std::uint8_t yeYfsGetBuildZonCfgFcsBuffer(void** bufferOut, std::uint32_t* sizeOut)
{
    return serve([&] {
        if (bufferOut == nullptr || sizeOut == nullptr) {
            report(yfs_error_corrupted_buffer, "ZON CFG buffer");
            return false;
        }
        if (s_zonCfgTable.buffer == nullptr || s_zonCfgTable.size == 0) return false;
        *bufferOut = s_zonCfgTable.buffer;
        *sizeOut = s_zonCfgTable.size;
        return true;
    });
}
