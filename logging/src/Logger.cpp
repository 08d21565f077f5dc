#include <logging/Logger.h>

#include <log4cpp/Category.hh>

#include <iostream>
#include <mutex>

namespace veltrane::logging {

namespace {

// An appender on the category or anywhere above it shows that the application has set logging up. That the category may
// be cut off from those above (its additivity) is part of what was set up, and no reason to write elsewhere.
bool isConfigured(log4cpp::Category& category) {
    for (log4cpp::Category* c = &category; c; c = c->getParent()) {
        if (c->getAppender()) return true;
    }
    return false;
}

// What is enabled before anything was configured: a priority that was set on the category or above it counts, except
// the root's, which log4cpp itself presets.
int unconfiguredThreshold(log4cpp::Category& category) {
    for (log4cpp::Category* c = &category; c->getParent(); c = c->getParent()) {
        if (c->getPriority() != log4cpp::Priority::NOTSET) return c->getPriority();
    }
    return Logger::WARN;
}

void writeLine(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cerr << text + "\n";
}

}  // namespace

Logger* Logger::instance() {
    static auto* const logger = new Logger;
    return logger;
}

log4cpp::Category* Logger::getCategory(const std::string& name, bool create) {
    return create ? &log4cpp::Category::getInstance(name) : log4cpp::Category::exists(name);
}

bool Logger::isEnabled(log4cpp::Category* category, _Level level) {
    if (!category) return false;
    if (isConfigured(*category)) return category->isPriorityEnabled(level);
    return level <= unconfiguredThreshold(*category);
}

void Logger::log(log4cpp::Category* category, _Level level, const std::string& file, int line,
                 const std::string& message) {
    if (!isEnabled(category, level)) return;

    const std::string record = file + ":" + std::to_string(line) + ": " + message;
    if (isConfigured(*category)) {
        category->log(level, record);
        return;
    }
    writeLine(log4cpp::Priority::getPriorityName(level) + " " + category->getName() + " " + record);
}

}  // namespace veltrane::logging
