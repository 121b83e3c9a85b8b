#include "zorvandata/tape_check.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "zorvandata/distinct_names.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"
#include "zorvandata/require.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

// The rest of a stream.
class Stream {
 public:
  explicit Stream(std::string_view bytes)
      : at_(reinterpret_cast<const uint8_t*>(bytes.data())), end_(at_ + bytes.size()) {}

  size_t left() const { return static_cast<size_t>(end_ - at_); }
  const uint8_t* at() const { return at_; }
  void moveTo(const uint8_t* at) { at_ = at; }
  uint8_t byte() {
    require(at_ != end_, "the kinds end too soon");
    return *at_++;
  }
  uint64_t number() {
    uint64_t value = 0;
    require(readVarint(at_, end_, value), "a stream of numbers ends too soon");
    return value;
  }
  // Numbers of any size: their ends are counted eight bytes at a time.
  void skipNumbers(uint64_t count) {
    constexpr uint64_t kHighBits = 0x8080808080808080;
    uint64_t word = 0;
    while (count > sizeof(word) && left() >= sizeof(word)) {
      std::memcpy(&word, at_, sizeof(word));
      const uint64_t ends = ~word & kHighBits;
      if (ends == 0) break;  // within a number of more than eight bytes
      count -= static_cast<uint64_t>(__builtin_popcountll(ends));
      // Up to the last number that ends here.
      at_ += (63 - static_cast<unsigned>(__builtin_clzll(ends))) / 8 + 1;
    }
    for (; count > 0; --count) number();
  }
  // False, without having moved, when there are not so many of a byte each.
  bool skipLogicals(uint64_t count) {
    if (count > left()) return false;
    unsigned char all = 0;
    for (uint64_t i = 0; i < count; ++i) all |= at_[i];
    if (all & ~zigzag(1)) return false;
    at_ += count;
    return true;
  }
  std::string_view take(uint64_t count) {
    require(count <= left(), "a stream ends too soon");
    const std::string_view taken(reinterpret_cast<const char*>(at_), static_cast<size_t>(count));
    at_ += count;
    return taken;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// Text codes and the texts that they tell of.
class TextChecker {
 public:
  TextChecker(std::string_view codes, std::string_view text) : codes_(codes), text_(text) {}

  void skip(size_t count, bool mayMiss) {
    if (skipShort(count, mayMiss)) return;
    for (size_t i = 0; i < count; ++i) next(mayMiss);
  }
  void next(bool mayMiss) {
    const uint64_t code = codes_.number();
    if (TapeReader::isNumber(code)) {
      require(code / 2 < std::min<uint64_t>(numbered_, kTextNumbers), "a text has no such number");
      repeats_ = true;
    } else if (TapeReader::isMissing(code)) {
      require(mayMiss, "a text is missing");
    } else {
      const size_t length = TapeReader::lengthOf(code);
      text_.take(length);
      numbered_ += takesNumber(length);
    }
  }
  size_t used() const {
    return reinterpret_cast<size_t>(codes_.at()) + reinterpret_cast<size_t>(text_.at());
  }
  bool isUsedUp() const { return codes_.left() == 0 && text_.left() == 0; }
  bool repeats() const { return repeats_; }

 private:
  // Many texts of which every code is a byte and none a number, in loops without branches. False,
  // without having moved, when they are not of that kind.
  bool skipShort(size_t count, bool mayMiss) {
    constexpr size_t kWorthIt = 16;
    if (count < kWorthIt || count > codes_.left()) return false;
    const uint8_t* codes = codes_.at();
    unsigned char all = 0;
    for (size_t i = 0; i < count; ++i) all |= codes[i];
    if ((all & 0x81) != 0) return false;
    size_t missing = 0;
    size_t empty = 0;
    size_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
      missing += codes[i] == 0;
      empty += codes[i] == 2;
      sum += codes[i];
    }
    require(missing == 0 || mayMiss, "a text is missing");
    text_.take(sum / 2 - (count - missing));
    codes_.moveTo(codes + count);
    numbered_ += count - missing - empty;
    return true;
  }

  Stream codes_;
  Stream text_;
  uint64_t numbered_ = 0;
  bool repeats_ = false;
};

// The name that stands somewhere, which moves on to the next one.
std::string_view nextName(const uint8_t*& at) {
  const auto length = static_cast<size_t>(readVarint(at));
  return {reinterpret_cast<const char*>(std::exchange(at, at + length)), length};
}

class TapeChecker {
 public:
  TapeChecker(Tape& tape, ChildChecker& children)
      : tape_(tape),
        childChecker_(children),
        kinds_(tape.kinds),
        counts_(tape.counts),
        ints_(tape.ints),
        reals_(tape.reals),
        dense_(tape.dense),
        texts_(tape.textLengths, tape.text) {}

  size_t check(int level) {
    checkShapes();
    const uint8_t first = kinds_.left() > 0 ? *kinds_.at() : uint8_t{0};
    require(first == kind::kRun || first == kindOf(ArrayType::CELL), "a tape holds no cell");
    item(level - 1);
    require(kinds_.left() == 0 && counts_.left() == 0 && ints_.left() == 0 && reals_.left() == 0 &&
                dense_.left() == 0 && texts_.isUsedUp(),
            "a stream is longer than what it is for");
    tape_.repeatsTexts = texts_.repeats();
    TapeReader reader(tape_);
    return ContainerHead(reader).items;
  }

 private:
  // Takes no room on the stack while the items are checked.
  [[gnu::noinline]] void checkShapes() {
    require(tape_.shapes.size() < UINT32_MAX, "the shapes are too long");
    Stream shapes(tape_.shapes);
    size_t count = 0;
    for (; shapes.left() > 0; ++count) checkShape(shapes);
    // Not before it is known how many: what grows takes more.
    tape_.shapeOffsets.reserve(count);
    const auto* begin = reinterpret_cast<const uint8_t*>(tape_.shapes.data());
    const uint8_t* at = begin;
    for (; count > 0; --count) {
      tape_.shapeOffsets.push_back(static_cast<uint32_t>(at - begin));
      nextName(at);
      for (uint64_t names = readVarint(at); names > 0; --names) nextName(at);
    }
  }

  void checkShape(Stream& shapes) const {
    const std::string_view className = shapes.take(shapes.number());
    checkUtf8(className);
    const uint64_t count = shapes.number();
    require(count <= shapes.left() / 2, "a shape has more names than bytes");
    require(count > 0 || !className.empty(), "a shape is empty");
    const uint8_t* names = shapes.at();
    for (uint64_t i = 0; i < count; ++i) {
      const std::string_view name = shapes.take(shapes.number());
      if (name.empty()) throw InvalidFieldNameException("a name is empty");
      checkUtf8(name);
    }
    const auto* begin = reinterpret_cast<const uint8_t*>(tape_.shapes.data());
    const auto next = [begin](size_t& position) {
      const uint8_t* at = begin + position;
      const std::string_view name = nextName(at);
      position = static_cast<size_t>(at - begin);
      return name;
    };
    if (!areDistinct(static_cast<size_t>(names - begin), count, next)) {
      throw InvalidFieldNameException("a name stands twice in a shape");
    }
  }

  // How much of the value streams is behind; grows with every value.
  size_t used() const {
    const auto position = [](const Stream& stream) {
      return reinterpret_cast<size_t>(stream.at());
    };
    return position(counts_) + position(ints_) + position(reals_) + position(dense_) +
           texts_.used() + children_;
  }

  static void enter(int level) {
    if (level > kMaxNesting) throw NestingTooDeepException();
  }

  // An item within something at a level.
  void item(int level) {
    const uint8_t* head = kinds_.at();
    const uint8_t next = kinds_.byte();
    if (next < kindOf(ArrayType::CELL) && next != kind::kChild) {
      ++read_;
      return value(next);
    }
    enter(level + 1);
    switch (next) {
      case kind::kChild:
        ++read_;
        ++children_;
        return childChecker_.next(level + 1);
      case kind::kDense: {
        const auto type = static_cast<ArrayType>(kinds_.byte());
        read_ += 2;
        require(isDense(type), "an array on a tape is of no dense type");
        const uint64_t count = elements();
        size_t bytes = 0;
        require(!__builtin_mul_overflow(count, elementSize(type), &bytes),
                "a stream ends too soon");
        const std::string_view payload = dense_.take(bytes);
        if (type == ArrayType::LOGICAL) checkLogicals(payload);
        return;
      }
      case kind::kStrings: {
        ++read_;
        texts_.skip(elements(), true);
        return;
      }
      case kind::kGrid: {
        const uint64_t count = elements();
        return container(kinds_.byte(), level + 1, head, count);
      }
      default:
        return container(next, level + 1, head, std::nullopt);
    }
  }

  // With extents of its own: of so many elements.
  void container(uint8_t next, int level, const uint8_t* head, std::optional<uint64_t> grid) {
    switch (next) {
      case kind::kRun: {
        const uint64_t length = kinds_.number();
        require(length <= kinds_.left(), "the kinds end too soon");
        const uint64_t count = grid ? *grid : counts_.number();
        read_ += static_cast<size_t>(kinds_.at() - head);
        return run(count, level, length);
      }
      case kindOf(ArrayType::CELL): {
        const uint64_t count = kinds_.number();
        require(!grid || count == *grid, "a cell has other extents than elements");
        read_ += static_cast<size_t>(kinds_.at() - head);
        for (uint64_t i = 0; i < count; ++i) item(level);
        return;
      }
      case kindOf(ArrayType::STRUCT):
      case kindOf(ArrayType::OBJECT):
      case kindOf(ArrayType::VALUE_OBJECT): {
        const uint64_t shape = kinds_.number();
        require(shape <= tape_.shapeOffsets.size(), "there is no such shape");
        const ShapeReader reader(tape_, shape);
        require(next != kindOf(ArrayType::STRUCT) || reader.className().empty(),
                "a struct has a class");
        read_ += static_cast<size_t>(kinds_.at() - head);
        for (size_t i = reader.names(); i > 0; --i) grid ? values(*grid, level) : item(level);
        return;
      }
      default:
        require(false, "there is no such kind");
    }
  }

  // The values of one name in all elements.
  void values(uint64_t elements, int level) {
    const uint8_t next = kinds_.left() > 0 ? *kinds_.at() : uint8_t{0};
    require(next == kind::kRun || next == kindOf(ArrayType::CELL), "values lie in no cell");
    Stream kinds = kinds_;
    kinds.byte();
    const uint64_t number = kinds.number();
    Stream counts = counts_;
    const uint64_t count = next == kind::kRun ? counts.number() : number;
    require(count == elements, "a cell has other extents than elements");
    item(level - 1);  // the cell takes no level of its own
  }

  void run(uint64_t count, int level, uint64_t length) {
    const uint8_t* first = kinds_.at();
    const uint8_t* end = first + length;
    if (length == 1 && simpleRun(count, *first)) {
      kinds_.moveTo(end);
      return;
    }
    for (uint64_t i = 0; i < count; ++i) {
      kinds_.moveTo(first);
      const size_t usedBefore = used();
      const size_t readBefore = read_;
      item(level);
      require(kinds_.at() == end, "an element of a run ends elsewhere");
      require(read_ - readBefore <= kKindsAValue * (used() - usedBefore),
              "the elements of a run have too few values");
    }
    kinds_.moveTo(end);
  }

  bool simpleRun(uint64_t count, uint8_t next) {
    switch (static_cast<ArrayType>(next)) {
      case ArrayType::DOUBLE:
        require(count <= reals_.left() / sizeof(double), "a stream ends too soon");
        reals_.take(count * sizeof(double));
        break;
      case ArrayType::INT64:
      case ArrayType::UINT64:
        ints_.skipNumbers(count);
        break;
      case ArrayType::LOGICAL:
        if (!ints_.skipLogicals(count)) return false;
        break;
      case ArrayType::CHAR:
        texts_.skip(count, false);
        break;
      default:
        return false;
    }
    read_ += count;
    return true;
  }

  void value(uint8_t next) {
    const auto type = static_cast<ArrayType>(next);
    switch (type) {
      case ArrayType::CHAR:
        return texts_.next(false);
      case ArrayType::ZORVAN_STRING:
        return texts_.next(true);
      case ArrayType::COMPLEX_DOUBLE:
        reals_.take(2 * sizeof(double));
        return;
      case ArrayType::DOUBLE:
        reals_.take(sizeof(double));
        return;
      case ArrayType::COMPLEX_SINGLE:
        single();
        [[fallthrough]];
      case ArrayType::SINGLE:
        return single();
      default:
        break;
    }
    if (!isComplex(type)) return integer(type);
    integer(realTypeOf(type));
    integer(realTypeOf(type));
  }

  void single() {
    double value = 0;
    std::memcpy(&value, reals_.take(sizeof(value)).data(), sizeof(value));
    const bool isFar =
        value > std::numeric_limits<float>::max() || value < std::numeric_limits<float>::lowest();
    const bool isInfinite = value - value != 0;  // or NaN
    require(isInfinite || (!isFar && static_cast<double>(static_cast<float>(value)) == value),
            "a single is none");
  }

  void integer(ArrayType type) {
    const int64_t value = unzigzag(ints_.number());
    const auto isWithin = [value](int64_t least, int64_t most) {
      require(value >= least && value <= most, "an integer is out of its type's range");
    };
    switch (type) {
      case ArrayType::LOGICAL:
        return isWithin(0, 1);
      case ArrayType::INT8:
        return isWithin(INT8_MIN, INT8_MAX);
      case ArrayType::UINT8:
        return isWithin(0, UINT8_MAX);
      case ArrayType::INT16:
        return isWithin(INT16_MIN, INT16_MAX);
      case ArrayType::UINT16:
        return isWithin(0, UINT16_MAX);
      case ArrayType::INT32:
        return isWithin(INT32_MIN, INT32_MAX);
      case ArrayType::UINT32:
        return isWithin(0, UINT32_MAX);
      default:
        return;
    }
  }

  // How many there are by the extents that come next.
  uint64_t elements() {
    uint64_t product = 1;
    bool isEmpty = false;
    for (uint64_t left = std::max<uint64_t>(counts_.number(), 1); left > 0; --left) {
      const uint64_t extent = counts_.number();
      if (extent == 0) {
        isEmpty = true;
      } else if (__builtin_mul_overflow(product, extent, &product) || product > PTRDIFF_MAX) {
        throw InvalidDimensionsException("the product of the dimensions overflows");
      }
    }
    return isEmpty ? 0 : product;
  }

  Tape& tape_;
  ChildChecker& childChecker_;
  Stream kinds_;
  Stream counts_;
  Stream ints_;
  Stream reals_;
  Stream dense_;
  TextChecker texts_;
  size_t children_ = 0;
  size_t read_ = 0;  // bytes of kinds, again and again where elements of runs are read
};

}  // namespace

size_t checkTape(Tape& tape, int level, ChildChecker& children) {
  return TapeChecker(tape, children).check(level);
}

void checkTextCodes(std::string_view codes, std::string_view text, size_t count, bool mayMiss) {
  TextChecker checker(codes, text);
  checker.skip(count, mayMiss);
  require(checker.isUsedUp(), "the texts are longer than their lengths say");
}

void checkLogicals(std::string_view elements) {
  // All at once, without a branch for each.
  unsigned char all = 0;
  for (const char element : elements) all |= static_cast<unsigned char>(element);
  require(all <= 1, "a logical is neither 0 nor 1");
}

}  // namespace foundation::zorvandata
