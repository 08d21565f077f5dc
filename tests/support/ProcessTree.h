#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace testing_support {

/** The process numbers of a process, of those that it has started, of those that these have started, and so on. */
inline std::vector<std::vector<int>> processTree(int root) {
    std::map<int, std::vector<int>> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream file(entry.path() / "stat");
        std::string text;
        std::getline(file, text);  // empty if the process has ended meanwhile
        std::istringstream stat(text.substr(std::min(text.rfind(')') + 1, text.size())));
        std::string state;
        int parent = 0;
        if (stat >> state >> parent && state != "Z") children[parent].push_back(std::stoi(name));
    }
    std::vector<std::vector<int>> levels = {{root}};
    while (!levels.back().empty()) {
        std::vector<int> next;
        for (const int process : levels.back())
            next.insert(next.end(), children[process].begin(), children[process].end());
        levels.push_back(next);
    }
    levels.pop_back();
    return levels;
}

/** The process that this one has started last and that is still there; 0: none. */
inline int lastChild() {
    const auto tree = processTree(getpid());
    return tree.size() < 2 ? 0 : *std::max_element(tree[1].begin(), tree[1].end());
}

}  // namespace testing_support
