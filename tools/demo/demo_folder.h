// The folder that a demo's phone lives in.
#ifndef DEMO_DEMO_FOLDER_H
#define DEMO_DEMO_FOLDER_H

#include <filesystem>

namespace awbcal {

/// An empty folder for a phone: `wanted`, cleared when an earlier demo made it, or a new temporary one when
/// `wanted` is empty. Throws InputError for a folder that holds anything else.
std::filesystem::path prepare_demo_folder(const std::filesystem::path& wanted);

}  // namespace awbcal

#endif
