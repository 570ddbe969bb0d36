#include "HeapShift.hpp"
#include "MemoryDevice.hpp"

#include "connect/RemoteOperations.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <benchmark/benchmark.h>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace agent::orvi::bench {
namespace {

using core::GenericPayload;

/// Read the source round and round.
streambuf::ReadFunction endlessRead() {
    return [position = std::size_t{0}](std::int64_t count) mutable {
        std::string result(source(), position, static_cast<std::size_t>(count));
        position = (position + result.size()) % sourceSize;
        return result;
    };
}

/// The least that a call by name through payloads and a future can be. It has no registration, no
/// barrier at withdrawal and no error path.
class Floor {
public:
    Floor() {
        methods["read"] = [read = endlessRead()](const GenericPayload& arguments) {
            return GenericPayload::fromValues(read(arguments.peek<std::int64_t>(0)));
        };
    }

    std::string read(std::int64_t count) const {
        std::promise<std::string> promise;
        std::future<std::string> answer = promise.get_future();
        const auto& method = methods.at("read");
        promise.set_value(method(GenericPayload::fromValues(count)).take<std::string>(0));
        return answer.get();
    }

private:
    std::unordered_map<std::string, std::function<GenericPayload(const GenericPayload&)>> methods;
};

/// The remote read of a connected stream buffer, without the stream buffer around it.
class Connection {
public:
    Connection()
        : publication(streambuf::makeDevice(
              uuid, endlessRead(), streambuf::noWriteFunction(), streambuf::noSeekOffFunction(),
              streambuf::noSeekPosFunction(), bufferSize)) {
        auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        const auto references = context.GetServiceReferences<core::Invokable>(
            "(orvi.servicename=orviStreambuf_" + boost::uuids::to_string(uuid) + ")");
        remoteRead = streambuf::details::remoteRead(context.GetService(references.at(0)));
    }

    std::string read(std::int64_t count) const { return remoteRead(count); }

private:
    static constexpr boost::uuids::uuid uuid{{0xca, 0x11}};

    streambuf::StreamBuffer publication;
    streambuf::ReadFunction remoteRead;
};

template <class Caller>
void readAll(benchmark::State& state, std::int64_t count) {
    const HeapShift shift;
    const Caller caller;
    for (auto _ : state) {
        for (std::size_t done = 0; done < sourceSize; done += static_cast<std::size_t>(count)) {
            benchmark::DoNotOptimize(caller.read(count));
        }
    }
    state.SetItemsProcessed(state.iterations() * (static_cast<std::int64_t>(sourceSize) / count));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sourceSize));
}

template <class Caller>
void add(const char* name, std::int64_t count) {
    benchmark::RegisterBenchmark(
        name, [=](benchmark::State& state) { readAll<Caller>(state, count); });
}

const bool added = [] {
    add<Connection>("call-4KiB/orvi", 4 << 10);
    add<Floor>("call-4KiB/floor", 4 << 10);
    add<Connection>("call-1MiB/orvi", 1 << 20);
    add<Floor>("call-1MiB/floor", 1 << 20);
    return true;
}();

} // namespace
} // namespace agent::orvi::bench
