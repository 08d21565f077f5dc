#include "ObjectOrder.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)

namespace veltrane::sceneutils::tool {

void orderObjectsByAge() {}

bool canOrderObjectsByAge() {
    return false;
}

}  // namespace veltrane::sceneutils::tool

#else

namespace {

// Only addresses: memory is taken for them stretch by stretch.
constexpr std::size_t addresses = std::size_t{1} << 40;
constexpr std::size_t stretchSize = std::size_t{1} << 20;
constexpr std::size_t stretches = addresses / stretchSize;
constexpr std::size_t alignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
// No class of OpenSceneGraph is larger; what is larger is an array.
constexpr std::size_t largestObject = 4096;
constexpr std::uint32_t inUse = std::uint32_t{1} << 31;  // new objects still go there

/** Nothing here may allocate by `new`, or have a constructor that runs late. */
class Ground {
public:
    void open() {
        if (_begin) return;
        void* begin = mmap(nullptr, addresses, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (begin == MAP_FAILED) return;  // a limit on addresses: then without order
        _next = _end = static_cast<char*>(begin);
        _begin = static_cast<char*>(begin);
    }

    bool isOpen() const { return _begin != nullptr; }
    bool holds(const void* object) const { return _begin && object >= _begin && object < _begin + addresses; }

    void* allocate(std::size_t size) {
        size = (size + alignment - 1) / alignment * alignment;
        const Locked locked(_lock);
        if (size > static_cast<std::size_t>(_end - _next) && !beginStretch()) return nullptr;
        void* object = _next;
        _next += size;
        ++_objects[stretchOf(object)];
        return object;
    }

    void free(void* object) {
        const Locked locked(_lock);
        const std::size_t stretch = stretchOf(object);
        if (--_objects[stretch] == 0) release(stretch);
    }

private:
    class Locked {
    public:
        explicit Locked(std::atomic_flag& flag) : _flag(flag) {
            while (_flag.test_and_set(std::memory_order_acquire)) {
            }
        }
        ~Locked() { _flag.clear(std::memory_order_release); }
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;

    private:
        std::atomic_flag& _flag;
    };

    std::size_t stretchOf(const void* object) const {
        return static_cast<std::size_t>(static_cast<const char*>(object) - _begin) / stretchSize;
    }

    bool beginStretch() {
        if (_end == _begin + addresses) return false;
        if (mprotect(_end, stretchSize, PROT_READ | PROT_WRITE) != 0) return false;
        if (_end != _begin) leave(stretchOf(_end - 1));
        _next = _end;
        _end += stretchSize;
        _objects[stretchOf(_next)] = inUse;
        return true;
    }

    void leave(std::size_t stretch) {
        _objects[stretch] &= ~inUse;
        if (_objects[stretch] == 0) release(stretch);
    }

    // Where the system refuses, the stretch keeps its memory; it is not used again.
    void release(std::size_t stretch) {
        static_cast<void>(mmap(_begin + stretch * stretchSize, stretchSize, PROT_NONE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0));
    }

    std::atomic_flag _lock = ATOMIC_FLAG_INIT;
    char* _begin = nullptr;
    char* _next = nullptr;
    char* _end = nullptr;
    std::uint32_t _objects[stretches] = {};  ///< how many there are in each stretch
};

Ground ground;

void* allocateAnywhere(std::size_t size) {
    for (;;) {
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): this is what `new` is made of
        if (void* object = std::malloc(size == 0 ? 1 : size)) return object;
        const std::new_handler handler = std::get_new_handler();
        if (!handler) return nullptr;
        handler();
    }
}

}  // namespace

// The compiler does not know that these are pairs: all that `new` gives comes back to the `delete` below.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    if (ground.isOpen() && size <= largestObject) {
        if (void* object = ground.allocate(size == 0 ? 1 : size)) return object;
        // Elsewhere it would be out of order, and other bytes would come out.
        if (const std::new_handler handler = std::get_new_handler()) handler();
    }
    if (void* object = allocateAnywhere(size)) return object;
    throw std::bad_alloc();
}

void operator delete(void* object) noexcept {
    if (ground.holds(object)) {
        ground.free(object);
    } else {
        std::free(object);  // NOLINT(cppcoreguidelines-no-malloc): it comes from malloc() above
    }
}

void operator delete(void* object, std::size_t) noexcept {
    operator delete(object);
}

namespace veltrane::sceneutils::tool {

void orderObjectsByAge() {
    ground.open();
}

bool canOrderObjectsByAge() {
    return true;
}

}  // namespace veltrane::sceneutils::tool

#endif
