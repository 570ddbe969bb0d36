/// Read by LeakSanitizer, where it is linked. An array of messages that cannot grow loses the
/// element that it has made for the new place: that is protobuf's, and one element each time.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:google::protobuf::internal::RepeatedPtrFieldBase::Add\n"
           "leak:google::protobuf::RepeatedPtrField<*>::Add\n";
}
