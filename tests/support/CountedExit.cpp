// What _exit() becomes where lines are counted (CMake option SCENEUTILS_COVERAGE): the tool works in processes that end
// by it, which would take their counts with them.

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);
}

void __wrap__exit(int status) {
    __gcov_dump();
    __real__exit(status);
}
