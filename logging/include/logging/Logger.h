#pragma once

#include <string>

namespace log4cpp {
class Category;
}

namespace veltrane::logging {

/**
 * The process-wide logger: named categories and numeric levels, on log4cpp.
 *
 * As long as the application has configured nothing, records of level WARN and worse go to std::cerr, one line each:
 * level, category, file:line and message (line breaks in it become blanks). A priority that was set on the category or
 * on one above it, other than the root, replaces WARN.
 *
 * As soon as log4cpp has an appender for a category (its own or one of a category above it, set up in code or from a
 * configuration file, before or after the first record), that configuration decides instead: its priorities say what is
 * written, its appenders where, its layouts how. The message they get is "FILE:LINE: MESSAGE". Nothing else is written
 * then, not even if the category's additivity keeps its records from all appenders.
 *
 * The four operations are defined in a shared library of their own, so an application can load another one in its
 * place. instance() works during static initialisation. All operations may be called from several threads.
 */
class __attribute__((visibility("default"))) Logger {
public:
    /** log4cpp's priorities: the lower, the graver. */
    enum _Level { ERROR = 300, WARN = 400, NOTICE = 500, INFO = 600, DEBUG = 700 };

    /** The one logger of the process. Created on first use and never destroyed. */
    static Logger* instance();

    /**
     * The category of that name. Owned by log4cpp and valid for the life of the process.
     * @param create whether a category that does not exist yet is made; if not, null is returned for such a name
     */
    log4cpp::Category* getCategory(const std::string& name, bool create);

    /** Whether a record of that level would be written. False for a null category. */
    bool isEnabled(log4cpp::Category* category, _Level level);

    /**
     * Writes one record if its level is enabled. A null category is ignored.
     * @param file the source file that reports; @param line the line in it
     */
    void log(log4cpp::Category* category, _Level level, const std::string& file, int line, const std::string& message);

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    Logger() = default;
    ~Logger() = default;
};

}  // namespace veltrane::logging
