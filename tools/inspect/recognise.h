// What a file is, by its place on a phone, by its name, by its content, or because it was said.
#ifndef INSPECT_RECOGNISE_H
#define INSPECT_RECOGNISE_H

#include <optional>
#include <string>

#include "inspect/open_phone.h"

namespace awbcal {

struct Recognised {
  Layout layout;
  std::optional<RecordKind> kind = {};
  std::optional<calib::Camera> camera = {};
};

/// A file of a phone, by its path there; nothing for one that holds no records.
std::optional<PhoneFile> recognise_by_place(const std::string& path);

/// A file by itself. Nothing: its content has to be searched. Throws InputError for an --as that is no kind.
std::optional<Recognised> recognise_alone(const std::string& name, const Bytes& bytes, const std::string& as);

/// The kinds of record that have this size; those with a good checksum alone where there are any.
std::vector<const RecordSpec*> kinds_of_size(std::span<const uint8_t> bytes);

}  // namespace awbcal

#endif
