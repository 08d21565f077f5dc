#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>

namespace fuzzing {

/** Choices that follow from a string of bytes, one byte each. When there are no more, each choice is the first one. */
class ByteChoices {
public:
    ByteChoices(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}

    bool areUsedUp() const { return _next >= _size; }

    /** A number below the limit, which is at most 256. */
    unsigned int below(unsigned int limit) { return limit == 0 ? 0 : nextByte() % limit; }

    /** Never true when the bytes are used up. */
    bool chance(unsigned int percent) { return below(100) >= 100 - percent; }

    template <typename T>
    T one(std::initializer_list<T> values) {
        return *std::next(values.begin(), below(static_cast<unsigned int>(values.size())));
    }

    template <typename Container>
    typename Container::value_type one(const Container& values) {
        return *std::next(values.begin(), below(static_cast<unsigned int>(values.size())));
    }

private:
    std::uint8_t nextByte() { return areUsedUp() ? std::uint8_t(0) : _data[_next++]; }

    const std::uint8_t* _data;
    std::size_t _size;
    std::size_t _next = 0;
};

}  // namespace fuzzing
