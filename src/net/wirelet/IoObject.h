#pragma once

namespace Velko {
namespace Wirelet {

// Something with sockets or timers on the library's threads.
class IoObject
{
public:
    virtual ~IoObject() = default;
    // Called by finalize() once the threads have stopped: close everything, start nothing, call no sink.
    virtual void abandon() = 0;
};

} // namespace Wirelet
} // namespace Velko
