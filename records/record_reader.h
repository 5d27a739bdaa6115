// Reads the bytes of a record where every reader looks for them: in its cache file, else in the kernel's
// export. No log lines, and nothing is judged.
#ifndef RECORDS_RECORD_READER_H
#define RECORDS_RECORD_READER_H

#include <cstddef>
#include <cstdint>

#include "records/record_files.h"

namespace calib {

struct RecordReading {
  enum class From : uint8_t { nowhere, cache_file, kernel_export };
  From from = From::nowhere;  ///< the source that opened; it alone is read
  size_t count = 0;           ///< bytes that the file delivered: of the record, or of the image
  bool is_whole = false;      ///< the whole of what was asked for is among them
  uint32_t tag_word = 0;      ///< the calibration tag word: the export's own, or a constant for a cache file
};

/// Reads `length` bytes of the record. A cache file that ends before leaves the rest of `buffer` as it is;
/// what an image does not hold is delivered as zeros. With no source `buffer` is untouched.
RecordReading read_record(const RecordFiles& files, Camera camera, void* buffer, size_t length);

/// The same from the cache file alone.
RecordReading read_cache(const RecordFiles& files, Camera camera, void* buffer, size_t length);

}  // namespace calib

#endif
