#include "Platform/linux/MountTable.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <optional>
#include <system_error>

#include "Platform/SafeFile.hpp"

namespace molvane {
namespace {

constexpr std::size_t kMaxTableSize = std::size_t{16} << 20U;

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  while (true) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

template <typename Number>
bool readNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool isOctal(char character) { return character >= '0' && character <= '7'; }

// The kernel writes blanks, newlines and backslashes as a backslash and three octal digits.
std::string unescaped(std::string_view text) {
  constexpr std::size_t kLength = 4;
  std::string plain;
  while (!text.empty()) {
    const bool isEscape = text[0] == '\\' && text.size() >= kLength &&
                          std::all_of(text.begin() + 1, text.begin() + kLength, isOctal);
    if (isEscape) {
      plain += static_cast<char>((text[1] - '0') * 64 + (text[2] - '0') * 8 + (text[3] - '0'));
    } else {
      plain += text[0];
    }
    text.remove_prefix(isEscape ? kLength : 1);
  }
  return plain;
}

// Each is a folder or a list of them.
std::vector<std::string> layersIn(std::string_view options) {
  constexpr std::array<std::string_view, 4> kLayers = {"lowerdir", "lowerdir+", "datadir+", "upperdir"};
  std::vector<std::string> layers;
  for (const std::string_view option : split(options, ',')) {
    const std::size_t end = std::min(option.find('='), option.size());
    if (std::find(kLayers.begin(), kLayers.end(), option.substr(0, end)) == kLayers.end()) continue;
    for (const std::string_view layer : split(option.substr(std::min(end + 1, option.size())), ':')) {
      if (layer.substr(0, 1) == "/") layers.push_back(unescaped(layer));
    }
  }
  return layers;
}

// identifier parent major:minor root mount-point options [optional fields] - type source options
std::optional<Mount> parseLine(std::string_view line) {
  constexpr std::size_t kIdentifier = 0, kDevice = 2, kMountPoint = 4, kFirstOptional = 6;
  const std::vector<std::string_view> fields = split(line, ' ');
  if (fields.size() <= kFirstOptional) return std::nullopt;
  const auto dash = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
  if (fields.end() - dash < 3) return std::nullopt;

  Mount mount;
  const std::size_t colon = fields[kDevice].find(':');
  if (colon == std::string_view::npos || !readNumber(fields[kIdentifier], mount.identifier) ||
      !readNumber(fields[kDevice].substr(0, colon), mount.major) ||
      !readNumber(fields[kDevice].substr(colon + 1), mount.minor)) {
    return std::nullopt;
  }
  mount.mountPoint = unescaped(fields[kMountPoint]);
  mount.type = unescaped(dash[1]);
  mount.source = unescaped(dash[2]);
  if (mount.type == "overlay" && fields.end() - dash > 3) mount.layers = layersIn(dash[3]);
  return mount;
}

}  // namespace

std::vector<Mount> parseMountTable(std::string_view text) {
  std::vector<Mount> mounts;
  for (const std::string_view line : split(text, '\n')) {
    if (std::optional<Mount> mount = parseLine(line)) mounts.push_back(*std::move(mount));
  }
  return mounts;
}

std::vector<std::string> readSwapTable(const std::string& path) {
  const std::optional<std::string> text = readSmallFile(path, kMaxTableSize);
  std::vector<std::string> paths;
  for (const std::string_view line : split(text ? *text : std::string_view(), '\n')) {
    // The line of headings does not begin with a path.
    if (line.substr(0, 1) == "/") paths.push_back(unescaped(line.substr(0, line.find_first_of(" \t"))));
  }
  return paths;
}

std::vector<Mount> readMountTable(const std::string& path) {
  const std::optional<std::string> text = readSmallFile(path, kMaxTableSize);
  if (!text) throw std::system_error(ENOENT, std::generic_category(), path);
  return parseMountTable(*text);
}

}  // namespace molvane
