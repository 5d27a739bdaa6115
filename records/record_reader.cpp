#include "records/record_reader.h"

#include <algorithm>
#include <cstring>

#include "common/file.h"

namespace calib {

namespace {

constexpr uint32_t kCacheTagWord = 0xFF3ACA01;

RecordReading part_of(const ExportImage& image, const RecordFiles& files, void* buffer, size_t length) {
  image.copy(files.export_offset, buffer, length);
  RecordReading reading{.count = image.count(), .is_whole = image.holds(files.export_offset, length)};
  image.copy(kExportTagWord, &reading.tag_word, sizeof reading.tag_word);
  return reading;
}

}  // namespace

bool ExportImage::read(const char* path) {
  const ssize_t count = read_file(path, bytes_, sizeof bytes_);
  if (count < 0) return false;
  count_ = static_cast<size_t>(count);
  return true;
}

void ExportImage::copy(size_t offset, void* buffer, size_t length) const {
  const size_t available = std::min(length, kExportSize - offset);
  memcpy(buffer, bytes_ + offset, available);
  memset(static_cast<uint8_t*>(buffer) + available, 0, length - available);
}

RecordReading read_cache(const RecordFiles& files, Camera camera, void* buffer, size_t length) {
  RecordReading reading;
  if (files.cache_is_image) {
    ExportImage image;
    if (!image.read(files.read.of(camera))) return {};
    reading = part_of(image, files, buffer, length);
  } else {
    const ssize_t count = read_file(files.read.of(camera), buffer, length);
    if (count < 0) return {};
    reading = {.count = static_cast<size_t>(count), .is_whole = static_cast<size_t>(count) == length};
  }
  reading.from = RecordReading::From::cache_file;
  reading.tag_word = kCacheTagWord;
  return reading;
}

RecordReading read_record(const RecordFiles& files, Camera camera, void* buffer, size_t length) {
  RecordReading reading = read_cache(files, camera, buffer, length);
  if (reading.from != RecordReading::From::nowhere) return reading;

  ExportImage image;
  if (!image.read(files.node.of(camera))) return {};
  reading = part_of(image, files, buffer, length);
  reading.from = RecordReading::From::kernel_export;
  return reading;
}

}  // namespace calib
