#include "run/acceptance.h"

#include <algorithm>
#include <iterator>

#include "run/phone_copy.h"

namespace awbcal {

namespace {

Acceptance acceptance_of(const Reader& reader, const LibraryCall& call) {
  const auto has = [](const char* part) {
    return [part](const phone::LogLine& line) { return line.text.find(part) != std::string::npos; };
  };
  auto begin = call.log.begin();
  auto end = call.log.end();
  if (reader.first_line != nullptr) begin = std::find_if(begin, end, has(reader.first_line));
  if (reader.line_after != nullptr) end = std::find_if(begin, end, has(reader.line_after));
  if (reader.first_line != nullptr && begin == end) return Acceptance::not_reached;
  const bool is_taken =
      reader.line_when_used == nullptr ? call.answer : std::any_of(begin, end, has(reader.line_when_used));
  return is_taken ? Acceptance::accepted : Acceptance::refused;
}

}  // namespace

std::vector<Answer> answers_on(RecordKind kind, const CameraRun& run) {
  std::vector<Answer> answers;
  for (const Reader& reader : readers_of(kind)) {
    if (const LibraryCall* call = find_call(run, reader.function)) {
      answers.push_back({&reader, acceptance_of(reader, *call)});
    }
  }
  return answers;
}

std::map<calib::Camera, CameraRun> run_cameras(const Phone& phone, const Modules& modules) {
  // Where a ratio is 1, nothing that counts here depends on it.
  constexpr calib::GoldenRatios kGolden{1.0F, 1.0F};
  Modules fitted = modules;
  fitted.merge(assumed_modules(phone, modules));
  PhoneCopy copy(phone, fitted, false);
  std::map<calib::Camera, CameraRun> runs;
  for (const calib::Camera camera : kCameras) {
    CameraTuning tuning(kGolden);
    CameraRun run = start_camera(copy.phone(), camera, kGolden, tuning);
    std::ranges::move(check_results(copy.phone(), camera), std::back_inserter(run));
    runs.emplace(camera, std::move(run));
  }
  return runs;
}

}  // namespace awbcal
