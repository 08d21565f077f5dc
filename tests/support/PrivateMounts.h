#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace testing_support {

/**
 * Mounts that this process and those that it starts see, and nobody else. They go at the end of the scope. Where the
 * system does not let this user mount anything, areAvailable() is false and nothing happens.
 */
class PrivateMounts {
public:
    PrivateMounts() : _own(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)) {
        const unsigned int user = geteuid();
        const unsigned int group = getegid();
        if (user == 0) {
            _areAvailable = unshare(CLONE_NEWNS) == 0;
        } else if (unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
            write("setgroups", "deny");
            write("uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
            write("gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
            _areAvailable = true;
        }
        _areAvailable = _areAvailable && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    ~PrivateMounts() {
        for (auto place = _places.rbegin(); place != _places.rend(); ++place) umount2(place->c_str(), MNT_DETACH);
        // Back to where one was; a user who is not root cannot, and stays in a place like the one before.
        if (setns(_own, CLONE_NEWNS) != 0) {
        }
        close(_own);
    }
    PrivateMounts(const PrivateMounts&) = delete;
    PrivateMounts& operator=(const PrivateMounts&) = delete;

    bool areAvailable() const { return _areAvailable; }

    /** A disk of that many bytes at `place`, which is made. */
    void addDisk(const std::filesystem::path& place, std::size_t bytes) {
        std::filesystem::create_directories(place);
        check(mount("none", place.c_str(), "tmpfs", 0, ("mode=777,size=" + std::to_string(bytes)).c_str()));
        _places.push_back(place);
    }
    void resizeDisk(const std::filesystem::path& place, std::size_t bytes) {
        check(mount("none", place.c_str(), "tmpfs", MS_REMOUNT, ("size=" + std::to_string(bytes)).c_str()));
    }
    /** Lets nobody write into a folder, root included. */
    void makeReadOnly(const std::filesystem::path& place) {
        check(mount(place.c_str(), place.c_str(), nullptr, MS_BIND, nullptr));
        _places.push_back(place);
        check(mount("none", place.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
    }
    /** Takes away what was mounted last. */
    void removeLast() {
        check(umount2(_places.back().c_str(), MNT_DETACH));
        _places.pop_back();
    }

private:
    static void write(const std::string& name, const std::string& text) { std::ofstream("/proc/self/" + name) << text; }
    static void check(int result) {
        if (result != 0) throw std::runtime_error("cannot mount");
    }

    int _own;
    bool _areAvailable = false;
    std::vector<std::filesystem::path> _places;
};

}  // namespace testing_support
