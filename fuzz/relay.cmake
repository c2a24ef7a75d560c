# The reader of the ingest server's reply bodies under libFuzzer. Included from fuzz/CMakeLists.txt
# after qlm_add_fuzzer is defined, so Clang-only like the rest. The reader is compiled in with the
# value, JSON and runtime classes it uses, all instrumented; nothing else of the platform is needed.
# Run e.g.:  <build>/fuzz/relay_message_fuzzer -max_total_time=60 NEW_INPUTS_DIR fuzz/corpus/relay
# A crashing input goes to tests/fuzz-regressions/relay/, which test_upload replays.
qlm_add_fuzzer(relay_message_fuzzer ${CMAKE_CURRENT_LIST_DIR}/RelayMessageFuzzer.cpp
               ${_root}/upload/RelayMessage.cpp
               ${_root}/platform/foundation/NSJSONSerialization.cpp
               ${_root}/platform/foundation/NSCollections.cpp
               ${_root}/platform/foundation/NSString.cpp
               ${_root}/platform/foundation/NSNumber.cpp
               ${_root}/platform/foundation/NSData.cpp
               ${_root}/platform/foundation/NSError.cpp
               ${_root}/platform/foundation/NSObject.cpp
               ${_root}/platform/objc/Runtime.cpp)
