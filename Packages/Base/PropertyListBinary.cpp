#include <bit>
#include <cmath>

#include "Base/PropertyListReaders.hpp"
#include "Base/Utf8.hpp"

// The format: an eight-byte magic, objects, a table with the offset of each object, and a trailer of 32 bytes
// at the very end. An object is a marker byte (high nibble the type, low nibble a size) and its payload;
// arrays and dictionaries hold the numbers of other objects. So objects can be shared, and nothing keeps a
// hostile document from sharing them until they expand to terabytes, or from putting one inside itself. The
// expansion is therefore paid for from a budget, and its depth is bounded.

namespace molvane {

namespace {

constexpr std::size_t kTrailerSize = 32;
/// What the values of one document may take, roughly in bytes.
constexpr std::size_t kBudget = std::size_t{32} << 20U;
constexpr std::size_t kCostOfValue = sizeof(PropertyList::Entry);

struct Malformed {};

void require(bool ok) {
  if (!ok) throw Malformed();
}

/// Bytes of the document, with every access checked.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] std::string_view slice(std::uint64_t offset, std::uint64_t size) const {
    require(offset <= bytes_.size() && size <= bytes_.size() - offset);
    return bytes_.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
  }

  [[nodiscard]] std::uint64_t bigEndian(std::uint64_t offset, std::uint64_t size) const {
    require(size >= 1 && size <= 8);
    std::uint64_t value = 0;
    for (const char byte : slice(offset, size)) value = value << 8U | static_cast<unsigned char>(byte);
    return value;
  }

  [[nodiscard]] std::uint64_t size() const { return bytes_.size(); }

 private:
  std::string_view bytes_;
};

std::string utf8OfUtf16(std::string_view units) {
  const auto unitAt = [&](std::size_t at) {
    return static_cast<char32_t>(static_cast<unsigned char>(units[at]) << 8U |
                                 static_cast<unsigned char>(units[at + 1]));
  };
  std::string text;
  for (std::size_t at = 0; at < units.size(); at += 2) {
    char32_t scalar = unitAt(at);
    if (scalar >= 0xD800 && scalar <= 0xDFFF) {
      at += 2;
      require(scalar < 0xDC00 && at < units.size());
      const char32_t low = unitAt(at);
      require(low >= 0xDC00 && low <= 0xDFFF);
      scalar = 0x10000 + ((scalar - 0xD800) << 10U) + (low - 0xDC00);
    }
    appendUtf8(text, scalar);
  }
  return text;
}

class Reader {
 public:
  explicit Reader(std::string_view document)
      : all_(document),
        objects_(document),
        offsetTable_(0),
        objectCount_(0),
        offsetSize_(0),
        referenceSize_(0) {
    require(document.size() >= kBinaryPropertyListMagic.size() + kTrailerSize);
    const std::uint64_t trailer = document.size() - kTrailerSize;
    offsetSize_ = all_.bigEndian(trailer + 6, 1);
    referenceSize_ = all_.bigEndian(trailer + 7, 1);
    objectCount_ = all_.bigEndian(trailer + 8, 8);
    root_ = all_.bigEndian(trailer + 16, 8);
    offsetTable_ = all_.bigEndian(trailer + 24, 8);
    require(offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8);
    require(offsetTable_ >= kBinaryPropertyListMagic.size() && offsetTable_ <= trailer);
    require(objectCount_ <= (trailer - offsetTable_) / offsetSize_);
    // No object reaches into the table behind the objects.
    objects_ = Bytes(document.substr(0, static_cast<std::size_t>(offsetTable_)));
  }

  PropertyList read() { return object(root_, 0); }

 private:
  /// A marker taken apart: the type, the size from the low nibble or from the integer behind it, and where
  /// the payload begins.
  struct Head {
    unsigned type;
    unsigned low;
    std::uint64_t count;
    std::uint64_t payload;
  };

  Head head(std::uint64_t number) const {
    require(number < objectCount_);
    const std::uint64_t offset = all_.bigEndian(offsetTable_ + number * offsetSize_, offsetSize_);
    require(offset >= kBinaryPropertyListMagic.size());
    const auto marker = static_cast<unsigned>(objects_.bigEndian(offset, 1));
    Head head{marker >> 4U, marker & 0xFU, marker & 0xFU, offset + 1};
    const bool hasCount = head.type >= 0x4 && head.type != 0x8;
    if (hasCount && head.low == 0xF) {
      const auto sizeMarker = static_cast<unsigned>(objects_.bigEndian(offset + 1, 1));
      require(sizeMarker >= 0x10 && sizeMarker <= 0x13);
      const std::uint64_t width = std::uint64_t{1} << (sizeMarker & 0xFU);
      head.count = objects_.bigEndian(offset + 2, width);
      head.payload = offset + 2 + width;
      // Also keeps products with the count from overflowing.
      require(head.count <= objects_.size());
    }
    return head;
  }

  void charge(std::uint64_t cost) {
    require(cost <= budget_);
    budget_ -= static_cast<std::size_t>(cost);
  }

  PropertyList object(std::uint64_t number, std::size_t depth) {
    const Head head = this->head(number);
    switch (head.type) {
      case 0x0:
        require(head.low == 0x8 || head.low == 0x9);
        return PropertyList(head.low == 0x9);
      case 0x1:
        return integer(head);
      case 0x2:
        return PropertyList(real(head));
      case 0x3: {
        require(head.low == 0x3);
        const Date date{real(head)};
        require(isPropertyListDate(date));
        return PropertyList(date);
      }
      case 0x4:
        charge(head.count);
        return PropertyList(PropertyList::Data{std::string(objects_.slice(head.payload, head.count))});
      case 0x5:
      case 0x6:
        return PropertyList(string(head));
      case 0x8:
        return uid(head);
      case 0xA:
        return array(head, depth + 1);
      case 0xD:
        return dictionary(head, depth + 1);
      default:
        throw Malformed();
    }
  }

  /// One, two and four bytes are unsigned; eight are signed, and sixteen hold what is out of their range.
  PropertyList integer(const Head& head) const {
    require(head.low <= 4);
    if (head.low < 4) {
      return PropertyList(
          std::bit_cast<std::int64_t>(objects_.bigEndian(head.payload, std::uint64_t{1} << head.low)));
    }
    const std::uint64_t high = objects_.bigEndian(head.payload, 8);
    const std::uint64_t low = objects_.bigEndian(head.payload + 8, 8);
    const bool negative = low >> 63U != 0;
    if (high == 0 && negative) return PropertyList(low);
    require(high == (negative ? ~std::uint64_t{0} : 0));
    return PropertyList(std::bit_cast<std::int64_t>(low));
  }

  double real(const Head& head) const {
    require(head.low == 2 || head.low == 3);
    if (head.low == 3) return std::bit_cast<double>(objects_.bigEndian(head.payload, 8));
    return std::bit_cast<float>(static_cast<std::uint32_t>(objects_.bigEndian(head.payload, 4)));
  }

  std::string string(const Head& head) {
    // UTF-16 becomes at most three bytes for each two.
    charge(head.count * (head.type == 0x6 ? 3 : 1));
    if (head.type == 0x6) return utf8OfUtf16(objects_.slice(head.payload, head.count * 2));
    const std::string_view text = objects_.slice(head.payload, head.count);
    for (const char c : text) require(static_cast<unsigned char>(c) < 0x80);
    return std::string(text);
  }

  /// In XML, keyed archives write such a reference as this dictionary.
  PropertyList uid(const Head& head) const {
    const auto number = objects_.bigEndian(head.payload, head.low + 1);
    require(number <= static_cast<std::uint64_t>(INT64_MAX));
    return PropertyList::dictionary({{"CF$UID", PropertyList(static_cast<std::int64_t>(number))}});
  }

  std::uint64_t reference(std::uint64_t references, std::uint64_t index) const {
    return objects_.bigEndian(references + index * referenceSize_, referenceSize_);
  }

  PropertyList array(const Head& head, std::size_t depth) {
    require(depth <= kMaximumPropertyListDepth);
    charge(head.count * kCostOfValue);
    PropertyList::Array items;
    items.reserve(static_cast<std::size_t>(head.count));
    for (std::uint64_t i = 0; i < head.count; ++i) items.push_back(object(reference(head.payload, i), depth));
    return PropertyList(std::move(items));
  }

  PropertyList dictionary(const Head& head, std::size_t depth) {
    require(depth <= kMaximumPropertyListDepth);
    charge(head.count * kCostOfValue);
    PropertyList::Dictionary entries;
    entries.reserve(static_cast<std::size_t>(head.count));
    for (std::uint64_t i = 0; i < head.count; ++i) {
      const Head key = this->head(reference(head.payload, i));
      require(key.type == 0x5 || key.type == 0x6);
      std::string name = string(key);
      entries.push_back({std::move(name), object(reference(head.payload, head.count + i), depth)});
    }
    return PropertyList::dictionary(std::move(entries));
  }

  Bytes all_;
  Bytes objects_;
  std::uint64_t offsetTable_;
  std::uint64_t objectCount_;
  std::uint64_t offsetSize_;
  std::uint64_t referenceSize_;
  std::uint64_t root_ = 0;
  std::size_t budget_ = kBudget;
};

}  // namespace

std::optional<PropertyList> parseBinaryPropertyList(std::string_view bytes) {
  try {
    return Reader(bytes).read();
  } catch (const Malformed&) {
    return std::nullopt;
  }
}

}  // namespace molvane
