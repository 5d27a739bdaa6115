// Raw images in DNG files, which LibRaw reads.
//
// It takes apart what hundreds of camera makers have written, and a crash or a hang of it is not the end of the tool:
// it works in a process of its own.
#ifndef RUN_DNG_H
#define RUN_DNG_H

#include "run/bayer.h"

namespace awbcal {

/// Throws InputError for what is no DNG with a Bayer pattern, and for what LibRaw does not survive.
BayerImage read_dng(const Bytes& bytes, const std::string& name);

/// The same in this process; an image that takes more memory is too large. For fuzzers.
BayerImage decode_dng(const Bytes& bytes, const std::string& name, unsigned most_megabytes);

}  // namespace awbcal

#endif
