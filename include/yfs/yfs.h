/* All families of libyfs. */
#pragma once

#include "yfs/afs.h"
#include "yfs/cfgtable.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/errors.h"
#include "yfs/export.h"
#include "yfs/facade.h"
#include "yfs/ftl.h"
#include "yfs/le.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"
#include "yfs/medium.h"
#include "yfs/status.h"
#include "yfs/vfs.h"
