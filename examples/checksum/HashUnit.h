// One file as a unit of work for the pool.
#ifndef CHECKSUM_HASH_UNIT_H
#define CHECKSUM_HASH_UNIT_H

#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Runnable.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "FileHash.h"

/// Brings what became of a file to the object that asked.
class HashEvent : public Murn::Event {
public:
    enum : unsigned int { Type = 2 };

    HashEvent(std::size_t number, FileHash hash) : Event(Type, nullptr), _number(number), _hash(std::move(hash)) {}

    const std::size_t _number;
    FileHash _hash;
};

/// Hashes one file on a worker of the pool, and posts a HashEvent.
class HashUnit : public Murn::Runnable {
public:
    /// @param number     says in the event which file it was
    /// @param name       the file; outlives the pool
    /// @param asker      gets the event; outlives the pool
    /// @param bytesRead  grows while the file is read; outlives the pool
    HashUnit(std::size_t number, const std::string& name, Murn::Object& asker, std::atomic<std::uint64_t>& bytesRead);

    void run() override;

private:
    const std::size_t _number;
    const std::string& _name;
    Murn::Object& _asker;
    std::atomic<std::uint64_t>& _bytesRead;
};

#endif
