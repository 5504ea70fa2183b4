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

    /// Called once for each armed read, on the loop of the thread that the stream is attached to. The read is over by
    /// then: arm another here if there is to be one. The handler may close, move and delete the stream.
    /// @param buffer  the buffer given when the read was armed; null when nothing was read
    /// @param result  the bytes in the buffer; with a null buffer 0 for the end of the stream or a hang-up, and a
    ///                negative number for an error (-1 unknown, -3 invalid descriptor, otherwise a negated
    ///                `GIOChannelError`)
    virtual void readDone(void* buffer, long result) = 0;
};

}  // namespace Murn

#endif
