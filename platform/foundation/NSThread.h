#pragma once
// The main thread is the one that started the process (that ran static initialisation).
namespace platform {

class NSThread {
public:
    static bool isMainThread();
};

}  // namespace platform
