// How far the work has come, for whoever sits at a terminal.
#ifndef CHECKSUM_PROGRESS_LINE_H
#define CHECKSUM_PROGRESS_LINE_H

#include <kxPAL/Timer.h>

#include <functional>
#include <string>

/// A line on standard error that changes several times a second, on a terminal only; elsewhere nothing is ever printed.
/// Belongs to one thread, whose loop keeps it up to date.
class ProgressLine : public Murn::Timer {
public:
    /// @param text  asked for what the line is to say
    explicit ProgressLine(std::function<std::string()> text);
    /// Removes the line.
    ~ProgressLine() override;

    /// Removes the line, to make room for something that stays. It comes back by itself.
    void clear();

private:
    void timeout() override;

    std::function<std::string()> _text;
    bool _isShown;
};

#endif
