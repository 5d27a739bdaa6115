// A phone's folder: a virtual phone, or what was pulled from a real one.
#ifndef INSPECT_PHONE_FOLDER_H
#define INSPECT_PHONE_FOLDER_H

#include "inspect/errors.h"
#include "inspect/input.h"

namespace awbcal {

/// Throws InputError when nothing of a phone is in the folder.
Input open_phone(const InputOptions& options);

/// What the name of a file in a phone's folder says, for files that hold records; `content` is not read.
std::optional<InputFile> classify(const std::string& path);

}  // namespace awbcal

#endif
