// Who receives what a stream reads.
#ifndef MURN_I_STREAM_READ_HANDLER_H
#define MURN_I_STREAM_READ_HANDLER_H

#include "Export.h"

namespace Murn {

/// Receives the result of a stream's armed read. The host implements it, owns it and keeps it alive while a read is
/// armed.
class MURN_API IStreamReadHandler {
public:
    virtual ~IStreamReadHandler();

    /// Called at most once for each armed read, on the loop of the thread that the stream is attached to, or within
    /// Stream::readSome(). The read is over by then: arm another here if there is to be one. The handler may close,
    /// move and delete the stream; it must not throw. It is not called when the read was ended otherwise (stopped,
    /// cleared, closed, deleted), nor when the descriptor had nothing to read although its watch said so: that read is
    /// lost, and an error is logged.
    /// @param buffer  the buffer given when the read was armed; null when nothing was read
    /// @param result  the bytes in the buffer; with a null buffer 0 for the end of the stream or a hang-up, and a
    ///                negative number for an error (-1 unknown, -3 invalid descriptor, otherwise a negated
    ///                `GIOChannelError`)
    virtual void readDone(void* buffer, long result) = 0;
};

}  // namespace Murn

#endif
