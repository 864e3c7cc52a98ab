/* Linkage of everything that the library exports: C names for the flat functions and data, default visibility. */
#pragma once

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#endif

#define YFS_API __attribute__((visibility("default")))

/* A record without padding, wherever it stands. The host fills such records field by field. */
#define YFS_PACKED __attribute__((packed))

#ifdef __cplusplus
#define YFS_BEGIN_C extern "C" {
#define YFS_END_C }
/* A default value of an argument, which C doesn't have. */
#define YFS_DEFAULT(value) = value
#else
#define YFS_BEGIN_C
#define YFS_END_C
#define YFS_DEFAULT(value)
#endif
