// What a message through a replaceable method costs compared with a virtual call: the price the
// library pays on paths that go through replaced platform methods.
#include <benchmark/benchmark.h>

#include "platform/foundation/NSObject.h"

using namespace platform;

namespace {

class Counter : public NSObject {
    PLATFORM_OBJC_CLASS(Counter, NSObject)
public:
    int value = 0;
    virtual int next() { return ++value; }
};

void BM_VirtualCall(benchmark::State& state) {
    auto counter = std::make_shared<Counter>();
    for (auto _ : state) benchmark::DoNotOptimize(counter->next());
}
BENCHMARK(BM_VirtualCall);

void BM_MessageSend(benchmark::State& state) {
    static const bool added = class_addMethod(
        Counter::class_(), sel_getUid("next"),
        imp_makeFunction<int>([](NSObject* self, SEL) { return ++static_cast<Counter*>(self)->value; }));
    (void)added;
    auto counter = std::make_shared<Counter>();
    SEL next = sel_getUid("next");
    for (auto _ : state) benchmark::DoNotOptimize(objc_msgSend<int>(counter.get(), next));
}
BENCHMARK(BM_MessageSend);

}  // namespace
