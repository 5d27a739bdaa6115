// Everything that the tool was given becomes one phone. Reads only.
#ifndef INSPECT_OPEN_PHONE_H
#define INSPECT_OPEN_PHONE_H

#include "inspect/errors.h"
#include "inspect/file_tree.h"
#include "inspect/phone.h"

namespace awbcal {

struct InputOptions {
  std::vector<std::string> paths =
      {};               ///< folders, images, exports, cache files, archives; "-" is standard input
  std::string as = {};  ///< a layout's name or a record's id; empty: recognise it
  std::optional<uint32_t> base = {};
  std::optional<calib::Camera> camera = {};  ///< of a file that does not name it
  bool with_digests = false;                 ///< say which bytes were read: for documents that are kept
};

/// One phone of all inputs. Throws InputError, with the file and the cause, for what cannot be read or recognised
/// at all, and where two inputs claim the same place.
Phone open_phone_of(const InputOptions& options);

/// The same from the bytes of one input; `name` may tell the kind, as a file's name does.
Phone phone_of_bytes(const std::string& name, Bytes bytes, const InputOptions& options);

/// The same from the files of a folder or of an archive.
Phone phone_of_tree(FileTree tree, const InputOptions& options);

}  // namespace awbcal

#endif
