// Captures the lines the code under test logs, as "<LEVEL>: <message>", the form the
// logging library prints after the program name.
#pragma once

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// The lines that contain text, in order.
Lines lines_containing(const Lines &lines, const std::string &text);

class LogCapture {
public:
        LogCapture();
        ~LogCapture();
        LogCapture(const LogCapture &) = delete;
        LogCapture &operator=(const LogCapture &) = delete;

        Lines lines() const;
        Lines matching(const std::string &text) const { return lines_containing(lines(), text); }
        // Expects the lines so far, line for line; a trailing '*' leaves the rest of that line
        // free (e.g. GLib's own message).
        void expect_lines(const Lines &want) const;
        void clear();
        // Takes the log back from whoever replaced the handler since construction.
        void install();
};
