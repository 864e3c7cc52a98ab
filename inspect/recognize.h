// Which format an image is in, told from its bytes alone: nobody has to name a kind or a geometry to look at one.
#pragma once

#include "ftl/eu_layout.h"
#include "inspect/efs_picture.h"

#include <cstdint>
#include <optional>
#include <span>

namespace yfs::inspect {

enum class image_kind : std::uint8_t { afs, efs };

// AFS: an erase unit that carries the magic; EFS: a block map whose header is sound, or the marker in its place.
// Damaged images count as what is left of them shows; nothing if that is neither.
std::optional<image_kind> recognize(std::span<const std::uint8_t> image);

// A sound header of a unit in use, or of the spare.
bool is_erase_unit(const ftl::eu_header_t& header);

// The geometry that a sound block map header tells, without files, and with no limit to the spread of erase counts,
// since neither is in an image. Nothing if no header is sound.
std::optional<efs_plan> plan_of_image(std::span<const std::uint8_t> image);

} // namespace yfs::inspect
