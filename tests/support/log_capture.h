// Captures the lines the code under test logs, as "<LEVEL>: <message>", the form the
// logging library prints after the program name.
#pragma once

#include <string>
#include <vector>

// The lines that contain text, in order.
std::vector<std::string> lines_containing(const std::vector<std::string> &lines, const std::string &text);

class LogCapture {
public:
        LogCapture();
        ~LogCapture();
        LogCapture(const LogCapture &) = delete;
        LogCapture &operator=(const LogCapture &) = delete;

        std::vector<std::string> lines() const;
        std::vector<std::string> matching(const std::string &text) const { return lines_containing(lines(), text); }
        void clear();
        // Takes the log back from whoever replaced the handler since construction.
        void install();
};
