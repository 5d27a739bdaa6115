// What every part of the tool throws for a file, an option or a value that it was given.
#ifndef INSPECT_ERRORS_H
#define INSPECT_ERRORS_H

#include <stdexcept>

namespace awbcal {

/// Something that a person gave us cannot be used; the text says what and where.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace awbcal

#endif
