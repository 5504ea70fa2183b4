// What a step of the tour tells its reader, and what it found.
#ifndef TOUR_FINDINGS_H
#define TOUR_FINDINGS_H

#include <string>
#include <vector>

/// Any thread. Prints one line of the tour's text.
/// @param format  a printf format, without a newline
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// What one step found: checks that held or not, and figures for the summary. One thread at a time, not locked.
class Findings {
public:
    /// Notes whether something is as it should be, and tells the reader.
    /// @param holds  whether it is
    /// @param what   a statement that is true when it is
    /// @return holds
    bool check(bool holds, const std::string& what);
    /// Notes a number for the summary line.
    /// @param value  the number
    /// @param unit   what it counts
    void figure(long value, const std::string& unit);

    unsigned int checks() const { return _checks; }
    const std::vector<std::string>& failures() const { return _failures; }
    const std::vector<std::string>& figures() const { return _figures; }

private:
    unsigned int _checks = 0;
    std::vector<std::string> _failures;
    std::vector<std::string> _figures;
};

#endif
