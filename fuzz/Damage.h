#pragma once

#include "support/FlightModels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

/** Choices that follow from a seed; the same on every machine. */
class Choices {
public:
    explicit Choices(std::uint64_t seed) : _state(seed * 0x9e3779b97f4a7c15u + 1) {}

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(next() % limit); }

    template <class Container>
    typename Container::value_type one(const Container& values) {
        return *std::next(std::begin(values), static_cast<std::ptrdiff_t>(below(std::size(values))));
    }

private:
    std::uint64_t next() {
        _state += 0x9e3779b97f4a7c15u;
        std::uint64_t value = _state;
        value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9u;
        value = (value ^ (value >> 27)) * 0x94d049bb133111ebu;
        return value ^ (value >> 31);
    }

    std::uint64_t _state;
};

/** Damages an OpenFlight file in the ways that broken tools, disks and transfers do, and some worse ones. */
class Damage {
public:
    Damage(std::uint64_t seed, const std::string& bytes) : _choices(seed), _records(splitRecords(bytes)) {}

    std::string result() {
        const std::size_t changes = 1 + _choices.below(4);
        for (std::size_t i = 0; i < changes && !_records.empty(); ++i) changeRecords();
        std::string bytes = joinRecords(_records);
        if (_choices.below(4) == 0) changeBytes(bytes);
        return bytes;
    }

private:
    using Numbers = std::vector<std::size_t>;

    static const Numbers& opcodes() {
        static const Numbers known = {1,   2,   4,   5,   10,  11,  14,  19,  20,  21,  31,  32,  33,  49,  50,  52,
                                      53,  54,  55,  56,  60,  61,  62,  63,  64,  66,  67,  68,  69,  70,  71,  72,
                                      73,  74,  76,  78,  79,  80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,
                                      91,  92,  93,  94,  95,  96,  98,  102, 103, 105, 110, 111, 113, 114, 115, 116,
                                      117, 118, 119, 120, 121, 122, 123, 124, 126, 127, 128, 130, 131};
        return known;
    }
    static const Numbers& notableValues() {
        static const Numbers values = {0,          1,          2,          3,          4,      7,
                                       8,          255,        0x7fff,     0x8000,     0xfffe, 0xffff,
                                       0x10000,    0x7fffffff, 0x80000000, 0xffffffff, 100000, 65536,
                                       0x7f800000, 0x7fc00000, 0xff800000, 0x00800000};
        return values;
    }
    static std::vector<std::string> names() {
        return {"",
                "master.flt",
                "a.flt",
                "b.flt",
                "gone.flt",
                "a.png",
                ".flt",
                "..",
                "../../../..",
                "/dev/null",
                "/",
                "a.flt\nb.flt",
                "%s%n.flt",
                "A.FLT",
                ".\\a.flt.flt",
                std::string(300, 'x'),
                "\xff\xfe.flt"};
    }

    std::string& anyRecord() { return _records[_choices.below(_records.size())]; }
    std::size_t anyPlace(const std::string& text) { return _choices.below(text.size() + 1); }

    void changeRecords() {
        switch (_choices.below(12)) {
            case 0:
                return drop();
            case 1:
                return duplicate();
            case 2:
                return std::swap(anyRecord(), anyRecord());
            case 3:
                return resize(anyRecord(), true);
            case 4:
                return resize(anyRecord(), false);
            case 5:
                return putBigEndian(anyRecord(), 0, 2, _choices.one(opcodes()));
            case 6:
                return putBigEndian(anyRecord(), 2, 2, _choices.one(notableValues()));
            case 7:
                return rename();
            case 8:
                return move();
            default:
                return changeNumber(anyRecord());
        }
    }

    void drop() { _records.erase(_records.begin() + static_cast<std::ptrdiff_t>(_choices.below(_records.size()))); }

    void duplicate() {
        const std::string record = anyRecord();
        const std::size_t times = 1 + _choices.below(3);
        const auto place = _records.begin() + static_cast<std::ptrdiff_t>(_choices.below(_records.size()));
        _records.insert(place, times, record);
    }

    void move() {
        const std::string record = anyRecord();
        drop();
        _records.insert(_records.begin() + static_cast<std::ptrdiff_t>(_choices.below(_records.size() + 1)), record);
    }

    void resize(std::string& record, bool saysSo) {
        const std::size_t size = std::min<std::size_t>(_choices.below(2 * record.size() + 8), 0xfffc);
        record.resize(size, static_cast<char>(_choices.below(256)));
        if (saysSo) putBigEndian(record, 2, 2, size);
    }

    /** Counts, indices, flags, coordinates: a number somewhere in the record. */
    void changeNumber(std::string& record) {
        const std::size_t width = _choices.one(Numbers{1, 2, 4, 8});
        const std::size_t place = 4 + 2 * _choices.below(record.size() / 2 + 1);
        const std::size_t value = _choices.below(4) == 0 ? _choices.below(1u << 16) : _choices.one(notableValues());
        putBigEndian(record, place, width, value);
    }

    /** Of a reference or a texture; or the flags of a reference. */
    void rename() {
        std::vector<std::string*> named;
        for (std::string& record : _records) {
            const std::size_t opcode = bigEndian(record, 0, 2);
            if (opcode == externalReferenceOpcode || opcode == texturePaletteOpcode) named.push_back(&record);
        }
        if (named.empty()) return;
        std::string& record = *_choices.one(named);
        if (_choices.below(3) == 0) return putBigEndian(record, 208, 4, _choices.one(notableValues()));
        std::string name = _choices.one(names());
        name.resize(std::min<std::size_t>(200, name.size() + 1), '\0');
        if (record.size() >= 4 + name.size()) record.replace(4, name.size(), name);
    }

    void changeBytes(std::string& bytes) {
        if (_choices.below(4) == 0) return bytes.resize(anyPlace(bytes));
        const std::size_t changes = 1 + _choices.below(8);
        for (std::size_t i = 0; i < changes && !bytes.empty(); ++i)
            bytes[_choices.below(bytes.size())] = static_cast<char>(_choices.below(256));
    }

    Choices _choices;
    std::vector<std::string> _records;
};

}  // namespace testing_support
