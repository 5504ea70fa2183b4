// What the library may say in the log while all goes well.
#ifndef SOAK_EXPECTED_LOG_H
#define SOAK_EXPECTED_LOG_H

#include <kxPAL/LogHandler.h>

#include "Ledger.h"

/// Takes every message that nobody else takes, and complains of those that are not to be expected of peers and threads
/// like the ones here. For the rest of the process, as default handlers are.
class ExpectedLog final : public Murn::LogHandler {
public:
    /// @param ledger  must outlive all logging
    explicit ExpectedLog(Ledger& ledger);

    void HandleLog(const char* domain, Murn::Logger::LogLevel level, const char* message) override;

private:
    Ledger& _ledger;
};

#endif
