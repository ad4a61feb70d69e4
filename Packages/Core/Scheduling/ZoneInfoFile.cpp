#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "Core/Scheduling/TimeZoneRules.hpp"

namespace molvane {

namespace {

constexpr std::int32_t kMostOffset = 26 * 3600;
// Some files begin with a transition long before the sun.
constexpr std::int64_t kFirstMoment = -(std::int64_t{1} << 60U);
constexpr std::int64_t kLastMoment = 221845392000;  // the year 9000

[[noreturn]] void refuse(const std::string& why) {
  throw std::runtime_error("not a usable time-zone file: " + why);
}

/// The counts in a header, each of entries in the data block behind it.
struct Header {
  std::size_t utcIndicators = 0;
  std::size_t standardIndicators = 0;
  std::size_t leapSeconds = 0;
  std::size_t transitions = 0;
  std::size_t types = 0;
  std::size_t nameBytes = 0;
};

/// Takes big-endian numbers off the head of the bytes.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  std::string_view take(std::size_t count) {
    if (count > rest_.size()) refuse("it is cut off");
    const std::string_view bytes = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return bytes;
  }

  template <typename Integer>
  Integer number() {
    std::uint64_t value = 0;
    for (const char byte : take(sizeof(Integer))) value = value << 8U | static_cast<unsigned char>(byte);
    return static_cast<Integer>(value);
  }

  Header header() {
    if (take(4) != "TZif") refuse("it does not begin as one");
    if (take(1).front() < '2') refuse("it is of version 1");
    take(15);
    Header header;
    header.utcIndicators = number<std::uint32_t>();
    header.standardIndicators = number<std::uint32_t>();
    header.leapSeconds = number<std::uint32_t>();
    header.transitions = number<std::uint32_t>();
    header.types = number<std::uint32_t>();
    header.nameBytes = number<std::uint32_t>();
    return header;
  }

  [[nodiscard]] std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

std::size_t blockSize(const Header& header, std::size_t timeSize) {
  return header.transitions * (timeSize + 1) + header.types * 6 + header.nameBytes +
         header.leapSeconds * (timeSize + 4) + header.standardIndicators + header.utcIndicators;
}

std::vector<std::int32_t> readOffsets(Reader& reader, std::size_t types) {
  std::vector<std::int32_t> offsets;
  for (std::size_t i = 0; i < types; ++i) {
    const auto offset = reader.number<std::int32_t>();
    if (offset < -kMostOffset || offset > kMostOffset) refuse("an offset is out of range");
    reader.take(2);
    offsets.push_back(offset);
  }
  if (offsets.empty()) refuse("it holds no offset");
  return offsets;
}

std::optional<PosixTimeZone> readFooter(std::string_view footer) {
  const std::size_t end = footer.find('\n', 1);
  if (footer.empty() || footer.front() != '\n' || end == std::string_view::npos)
    refuse("its last line is missing");
  const std::string_view rule = footer.substr(1, end - 1);
  if (rule.empty()) return std::nullopt;
  std::optional<PosixTimeZone> zone = PosixTimeZone::parse(rule);
  if (!zone) refuse("its last line is no rule");
  return zone;
}

}  // namespace

TimeZoneRules TimeZoneRules::fromZoneInfo(std::string_view bytes) {
  Reader reader(bytes);
  reader.take(blockSize(reader.header(), sizeof(std::int32_t)));  // the 32-bit times, which stop in 2037
  const Header header = reader.header();
  if (header.leapSeconds != 0) refuse("it counts leap seconds");

  Reader block(reader.take(blockSize(header, sizeof(std::int64_t))));
  Reader times(block.take(header.transitions * sizeof(std::int64_t)));
  Reader types(block.take(header.transitions));
  const std::vector<std::int32_t> offsets = readOffsets(block, header.types);

  std::vector<Transition> transitions;
  transitions.reserve(header.transitions);
  for (std::size_t i = 0; i < header.transitions; ++i) {
    const auto at = times.number<std::int64_t>();
    const auto type = types.number<std::uint8_t>();
    if (type >= offsets.size()) refuse("a transition names no offset");
    if (at < kFirstMoment || at > kLastMoment) refuse("a time is out of range");
    if (!transitions.empty() && at <= transitions.back().at) refuse("its times are out of order");
    transitions.push_back({at, offsets[type]});
  }
  return {offsets.front(), transitions, readFooter(reader.rest())};
}

}  // namespace molvane
