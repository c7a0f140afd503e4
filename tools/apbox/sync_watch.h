// sync_watch.h: process 1 hears of every sync that a program in the box asks for, before the program goes on.
//
// Each command gets a filter that stops it in fsync, fdatasync, sync and syncfs until process 1 has answered. So a
// program of any kind is seen, static or emulated, and nothing is loaded into it. What lies outside the kept folders is
// synced as ever.
#pragma once

#include "tools/apbox/files.h"
#include "tools/apbox/kept_store.h"

namespace box {

// Puts the filter over this process and all that it starts. The descriptor on which its syncs are reported, or an empty
// one where the kernel has no such filter or another one reports already.
Descriptor watch_own_syncs();

// Answers one report: takes what is to be synced into `store`, and tells the program how that went. False when the
// descriptor has no more to report, since all programs under its filter have ended.
bool answer_sync(int reports, KeptStore &store);

}  // namespace box
