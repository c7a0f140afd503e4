// profile.h: reading and matching of the product profiles, for the files that apply them.
#pragma once

#include "foundation/console.h"
#include "foundation/owned.h"

namespace ap {

inline constexpr char profile_path[] = "/etc/profile.json";

// The parsed profile file; null when it is unreadable, which is logged, or no JSON.
UniqueJson read_profile_file(Caller caller = Caller::here());

// The first product whose "model" is `profile_id`, inside `profiles`; null, after a line in the log, when there is
// none.
const cJSON *match_profile(const cJSON *profiles, const char *profile_id);

}  // namespace ap
