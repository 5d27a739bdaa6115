// The page of recorded frames: where each is, and how the run is judged.
#ifndef PAGE_REPLAY_PAGE_H
#define PAGE_REPLAY_PAGE_H

#include <string>

#include "run/factory_replay.h"

namespace awbcal {

std::string replay_page(const Frames& frames, const Replay& replay, const ReplaySettings& settings);

}  // namespace awbcal

#endif
