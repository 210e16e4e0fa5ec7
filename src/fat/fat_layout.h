// Inside the folder: the layout of one kind, whatever kind the size would choose.
#pragma once

#include "fat/fat_volume.h"

namespace tallowin {

// As computeFatLayout, for `kind`. False when the FAT would not fit its fields.
[[nodiscard]] bool layOutFat(FatVolume& volume, FatKind kind, i32 sectorsPerCluster);

}  // namespace tallowin
