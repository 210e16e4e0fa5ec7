// What start-up does to disks with an EMBR.
#pragma once

#include "app/session.h"
#include "ops/front_end.h"

namespace tallowin {

// Brings the EMBR of every disk and image up to date with its MBR, under a box that says so.
// Of each bus the drives that its chooser offers; nothing is shown when none has an EMBR.
void synchronizeDrives(Session& session, FrontEnd& frontEnd);

}  // namespace tallowin
