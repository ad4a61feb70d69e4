#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/PageBuffer.hpp"
#include "Report.hpp"

namespace molvane::bench {

using Work = std::function<void()>;

/// How long `work` took.
[[nodiscard]] double secondsOf(const Work& work);

/// One side of a comparison. What `prepare` does ahead of each round is not counted.
struct Side {
  Work work;
  Work prepare = [] {};
};

struct Rounds {
  int counted = 1;
  int warmUps = 0;  ///< that come first and do not count
};

/// Runs both sides in turns, every other round the other way round, so that what else the machine does meets
/// both. `row` has the name, the target and the unit, "s", "ms" or "µs"; returns it with both medians.
[[nodiscard]] Comparison compareInTurns(Comparison row, Rounds rounds, const Side& ours, const Side& peer);

/// Runs a program to its end, without input. Throws with what it wrote when it takes ten minutes or its exit
/// status is above `mostStatus`.
void runProgram(const std::string& executable, const std::vector<std::string>& arguments, int mostStatus = 0);

/// Writes out what is to be written and empties the page cache. Needs root.
void forgetCaches();

/// Memory for what is measured next. A virtual machine may give memory that lies free back to its host after
/// a second or two; to get it again takes longer than most work, and would be counted with one side or the
/// other. So this keeps as much in use as the work needs, and leaves it just ahead of the work.
class WarmMemory {
 public:
  /// For work that fills so many bytes; a quarter more is kept.
  explicit WarmMemory(std::size_t bytes);

  /// Takes other memory into use, what the round before has freed among it, and leaves what it held.
  void renew();

 private:
  std::size_t size_;
  std::unique_ptr<PageBuffer> held_;
};

/// Where folders lie on the disk and not in memory.
inline constexpr const char* kDiskFolders = "/var/tmp";

/// Fills the folder at `path`, which is made, with `folders` folders of `filesEach` small files.
void makeFileTree(const std::string& path, int folders, int filesEach);

}  // namespace molvane::bench
