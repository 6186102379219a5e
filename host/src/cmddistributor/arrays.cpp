#include <algorithm>
#include <bit>
#include <cstddef>
#include <string>
#include <utility>
#include <variant>

#include "cmddistributor/detail.h"

// One byte for the version, then the array: its class in a byte, the number of its dimensions in a byte, each
// of these in eight, and its content, from which the number of elements follows. A struct array has the
// number of its fields and their names, each after its length, in front of the values. Numbers have their
// lowest byte first.

namespace cmddistributor::detail {

namespace {

constexpr std::uint8_t version = 1;
constexpr std::uint8_t nullArray = 0xFF;  // no class has this number
constexpr int deepest = 200;
constexpr std::size_t mostDimensions = 32;
constexpr std::size_t mostWithoutContent = 65'536;  // elements of a struct array that has no fields

[[noreturn]] void refuse(const std::string& what) {
    throw matrix::ArrayException("Serialized array: " + what);
}

class BytesWriter {
public:
    explicit BytesWriter(Bytes& bytes) : bytes_(bytes) {}

    void array(const mxArray* array, int depth = 0) {
        if (depth > deepest) refuse("arrays must not be nested deeper than " + std::to_string(deepest) + ".");
        if (array == nullptr) return number(nullArray, 1);
        if (array->dimensions().size() > mostDimensions)
            refuse("an array must not have more than 32 dimensions.");
        number(array->classId(), 1);
        number(array->dimensions().size(), 1);
        for (const std::size_t size : array->dimensions()) number(size, 8);
        std::visit([&](const auto& content) { write(content, depth); }, array->content());
    }
    void number(std::uint64_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }

private:
    void write(const std::u16string& text, int) {
        for (const char16_t unit : text) number(unit, 2);
    }
    void write(const std::vector<double>& numbers, int) {
        for (const double value : numbers) number(std::bit_cast<std::uint64_t>(value), 8);
    }
    void write(const std::vector<bool>& flags, int) {
        for (const bool flag : flags) number(flag ? 1 : 0, 1);
    }
    void write(const mxArray::Cells& cells, int depth) {
        for (const auto& cell : cells) array(cell.get(), depth + 1);
    }
    void write(const mxArray::Fields& fields, int depth) {
        number(fields.names.size(), 4);
        for (const std::string& name : fields.names) {
            number(name.size(), 4);
            bytes_.insert(bytes_.end(), name.begin(), name.end());
        }
        write(fields.values, depth);
    }

    Bytes& bytes_;
};

class BytesReader {
public:
    explicit BytesReader(const Bytes& bytes) : bytes_(bytes) {}

    matrix::ArrayPtr whole() {
        if (number(1) != version) refuse("the version is not known.");
        auto read = array(0);
        if (remaining() > 0) refuse("there are bytes after the end.");
        return read;
    }

private:
    matrix::ArrayPtr array(int depth) {
        if (depth > deepest) refuse("it is nested too deeply.");
        const auto id = number(1);
        if (id == nullArray) return nullptr;
        const auto dimensionCount = number(1);
        if (dimensionCount > mostDimensions) refuse("it has too many dimensions.");
        matrix::Dimensions dimensions;
        for (std::uint64_t i = 0; i < dimensionCount; ++i) dimensions.push_back(number(8));
        auto content = contentOf(id, dimensions, depth);
        return matrix::ArrayPtr(new mxArray(std::move(dimensions), std::move(content)));
    }

    mxArray::Content contentOf(std::uint64_t id, const matrix::Dimensions& dimensions, int depth) {
        switch (id) {
            case mxCHAR_CLASS: {
                std::u16string text(elements(dimensions, remaining() / 2), u'\0');
                for (char16_t& unit : text) unit = static_cast<char16_t>(number(2));
                return text;
            }
            case mxDOUBLE_CLASS: {
                std::vector<double> numbers(elements(dimensions, remaining() / 8));
                for (double& value : numbers) value = std::bit_cast<double>(number(8));
                return numbers;
            }
            case mxLOGICAL_CLASS: {
                std::vector<bool> flags(elements(dimensions, remaining()));
                for (auto&& flag : flags) flag = flagOf(number(1));
                return flags;
            }
            case mxCELL_CLASS:
                return arrays(elements(dimensions, remaining()), depth);
            case mxSTRUCT_CLASS:
                return fields(dimensions, depth);
            default:
                refuse("there is no such class of arrays.");
        }
    }

    mxArray::Fields fields(const matrix::Dimensions& dimensions, int depth) {
        mxArray::Fields read;
        const auto count = number(4);
        for (std::uint64_t i = 0; i < count; ++i) read.names.push_back(text(number(4)));
        const std::size_t most = count == 0 ? mostWithoutContent : remaining() / count;
        read.values = arrays(elements(dimensions, most) * count, depth);
        return read;
    }

    // Grows with what is really there: the next arrays may say that they need more.
    mxArray::Cells arrays(std::size_t count, int depth) {
        mxArray::Cells read;
        for (std::size_t i = 0; i < count; ++i) read.push_back(array(depth + 1));
        return read;
    }

    // How many elements there are, if that is not more than the remaining bytes can hold.
    static std::size_t elements(const matrix::Dimensions& dimensions, std::size_t most) {
        if (std::ranges::find(dimensions, std::size_t{0}) != dimensions.end()) return 0;
        std::size_t count = 1;
        for (const std::size_t size : dimensions) {
            if (size > most / count) refuse("its dimensions say more than its bytes hold.");
            count *= size;
        }
        if (count > most) refuse("its dimensions say more than its bytes hold.");
        return count;
    }

    static bool flagOf(std::uint64_t byte) {
        if (byte > 1) refuse("a logical must be 0 or 1.");
        return byte == 1;
    }

    std::string text(std::uint64_t length) {
        if (length > remaining()) refuse("it ends too early.");
        const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at_);
        at_ += length;
        return {begin, begin + static_cast<std::ptrdiff_t>(length)};
    }
    std::uint64_t number(std::size_t width) {
        if (width > remaining()) refuse("it ends too early.");
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value |= std::uint64_t{bytes_[at_++]} << (8U * i);
        return value;
    }
    std::size_t remaining() const { return bytes_.size() - at_; }

    const Bytes& bytes_;
    std::size_t at_ = 0;
};

}  // namespace

std::vector<Bytes> serializeMxArrays(const std::vector<const mxArray*>& arrays) {
    std::vector<Bytes> serialized(arrays.size());
    for (std::size_t i = 0; i < arrays.size(); ++i) {
        BytesWriter writer(serialized[i]);
        writer.number(version, 1);
        writer.array(arrays[i]);
    }
    return serialized;
}

std::vector<matrix::ArrayPtr> deserializeMxArrays(const std::vector<Bytes>& serialized) {
    std::vector<matrix::ArrayPtr> arrays;
    for (const Bytes& bytes : serialized) arrays.push_back(BytesReader(bytes).whole());
    return arrays;
}

void nullSafeMxVecDestroy(std::vector<mxArray*>& arrays) {
    for (mxArray* array : std::exchange(arrays, {})) matrix::destroyArray(array);
}

void nullSafeMxConstVecDestroy(std::vector<const mxArray*>& arrays) {
    for (const mxArray* array : std::exchange(arrays, {})) matrix::destroyArray(const_cast<mxArray*>(array));
}

}  // namespace cmddistributor::detail
