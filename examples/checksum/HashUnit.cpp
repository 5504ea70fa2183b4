// One file as a unit of work for the pool.
#include "HashUnit.h"

#include <kxPAL/Application.h>

HashUnit::HashUnit(std::size_t number, const std::string& name, Murn::Object& asker,
                   std::atomic<std::uint64_t>& bytesRead)
    : _number(number), _name(name), _asker(asker), _bytesRead(bytesRead)
{
}

void HashUnit::run()
{
    Murn::Application::PostEvent(&_asker, new HashEvent(_number, hashFile(_name, _bytesRead)));
}
