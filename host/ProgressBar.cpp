#include "host/ProgressBar.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace harvane {
namespace {

constexpr int kBarWidth = 30;
constexpr int kSmallestBar = 5;
constexpr int kUsualColumns = 80;
constexpr std::chrono::milliseconds kInterval{100};
constexpr const char* kClearLine = "\r\033[K";

int ColumnsOf(std::FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

}  // namespace

std::string ProgressText(const std::string& label, const Progress& progress, int columns) {
  std::string speed;
  if (progress.elapsedSeconds > 0.0) {
    speed = fmt::format("  {:.0f} x real time", progress.audioSeconds / progress.elapsedSeconds);
  }
  std::string text;
  if (progress.allFrames <= 0) {
    text = fmt::format("{}  {:.0f} s{}", label, progress.audioSeconds, speed);
  } else {
    const double part = std::clamp(
        static_cast<double>(progress.frames) / static_cast<double>(progress.allFrames), 0.0, 1.0);
    const std::string tail = fmt::format("{:3.0f} %{}", part * 100.0, speed);
    const int room = columns - static_cast<int>(label.size() + tail.size()) - 4;
    const int width = std::min(room, kBarWidth);
    if (width < kSmallestBar) {
      text = fmt::format("{} {}", label, tail);
    } else {
      const auto filled = static_cast<std::size_t>(part * width);
      text = fmt::format("{} [{}{}] {}", label, std::string(filled, '#'),
                         std::string(static_cast<std::size_t>(width) - filled, ' '), tail);
    }
  }
  return text.substr(0, static_cast<std::size_t>(std::max(columns, 0)));
}

ProgressBar::ProgressBar(std::FILE* stream, std::string label, std::int64_t allFrames,
                         int sampleRate)
    : stream(stream),
      label(std::move(label)),
      allFrames(allFrames),
      sampleRate(sampleRate),
      isShown(isatty(fileno(stream)) != 0) {}

ProgressBar::~ProgressBar() {
  if (!isShown) return;
  std::fputs(kClearLine, stream);
  std::fflush(stream);
}

void ProgressBar::Update(std::int64_t frames) {
  if (!isShown) return;
  const Clock::time_point now = Clock::now();
  if (now < next) return;
  next = now + kInterval;
  const std::chrono::duration<double> elapsed = now - start;
  const Progress progress = {frames, allFrames, static_cast<double>(frames) / sampleRate,
                             elapsed.count()};
  // The last column stays free: some terminals wrap there.
  std::fprintf(stream, "%s%s", kClearLine,
               ProgressText(label, progress, ColumnsOf(stream) - 1).c_str());
  std::fflush(stream);
}

}  // namespace harvane
