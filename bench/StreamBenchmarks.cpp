#include "HeapShift.hpp"
#include "MemoryDevice.hpp"
#include "Peers.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ios>
#include <istream>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

using Traits = std::streambuf::traits_type;

constexpr auto in = std::ios_base::in;
constexpr auto out = std::ios_base::out;

/// What one pass over the source did.
struct Pass {
    std::size_t calls = 0;
    std::size_t bytes = 0;
};

using StreamPass = Pass (*)(std::streambuf& buffer, std::size_t chunk);
using MemoryPass = Pass (*)(std::size_t chunk);

Pass readCharacters(std::streambuf& buffer, std::size_t) {
    std::size_t count = 0;
    std::uint64_t sum = 0;
    for (auto next = buffer.sbumpc(); next != Traits::eof(); next = buffer.sbumpc()) {
        sum += static_cast<std::uint64_t>(next);
        ++count;
    }
    benchmark::DoNotOptimize(sum);
    return {count, count};
}

Pass writeCharacters(std::streambuf& buffer, std::size_t) {
    for (const char character : source()) {
        buffer.sputc(character);
    }
    buffer.pubsync();
    return {sourceSize, sourceSize};
}

Pass readLines(std::streambuf& buffer, std::size_t) {
    std::istream stream(&buffer);
    std::string line;
    Pass pass;
    while (std::getline(stream, line)) {
        ++pass.calls;
        pass.bytes += line.size() + (stream.eof() ? 0 : 1);
    }
    return pass;
}

Pass readChunks(std::streambuf& buffer, std::size_t chunk) {
    std::vector<char> destination(chunk);
    Pass pass;
    for (std::size_t got = chunk; got == chunk; ++pass.calls) {
        got = static_cast<std::size_t>(
            buffer.sgetn(destination.data(), static_cast<std::streamsize>(chunk)));
        pass.bytes += got;
    }
    return pass;
}

Pass writeChunks(std::streambuf& buffer, std::size_t chunk) {
    Pass pass;
    for (std::size_t put = chunk; put == chunk; ++pass.calls) {
        const std::size_t count = std::min(chunk, sourceSize - pass.bytes);
        put = static_cast<std::size_t>(
            buffer.sputn(source().data() + pass.bytes, static_cast<std::streamsize>(count)));
        pass.bytes += put;
    }
    buffer.pubsync();
    return pass;
}

Pass copyCharacters(std::size_t) {
    char last = 0;
    for (const char& character : source()) {
        std::memcpy(&last, &character, 1);
        benchmark::DoNotOptimize(last);
    }
    return {sourceSize, sourceSize};
}

Pass copyLines(std::size_t) {
    const char* position = source().data();
    const char* const end = position + sourceSize;
    std::vector<char> line(128);
    Pass pass{0, sourceSize};
    for (; position != end; ++pass.calls) {
        const auto left = static_cast<std::size_t>(end - position);
        const void* found = std::memchr(position, '\n', left);
        const char* next = found ? static_cast<const char*>(found) + 1 : end;
        std::memcpy(line.data(), position, static_cast<std::size_t>(next - position));
        benchmark::DoNotOptimize(line.data());
        benchmark::ClobberMemory();
        position = next;
    }
    return pass;
}

Pass copyFromSource(std::size_t chunk) {
    std::vector<char> destination(chunk);
    Pass pass;
    for (; pass.bytes < sourceSize; ++pass.calls) {
        const std::size_t count = std::min(chunk, sourceSize - pass.bytes);
        std::memcpy(destination.data(), source().data() + pass.bytes, count);
        benchmark::ClobberMemory();
        pass.bytes += count;
    }
    return pass;
}

Pass copyToSink(std::size_t chunk) {
    static std::vector<char> sink(sourceSize + 2048); // not at the source's offset in its page
    Pass pass;
    for (; pass.bytes < sourceSize; ++pass.calls) {
        const std::size_t count = std::min(chunk, sourceSize - pass.bytes);
        std::memcpy(sink.data() + 2048 + pass.bytes, source().data() + pass.bytes, count);
        benchmark::ClobberMemory();
        pass.bytes += count;
    }
    return pass;
}

/// Repeat one pass; a pass that moved less than the source would be no measurement.
template <class OnePass>
void repeat(benchmark::State& state, OnePass onePass) {
    Pass pass;
    for (auto _ : state) {
        pass = onePass();
        if (pass.bytes != sourceSize) {
            state.SkipWithError("A pass moved less than the whole source.");
            return;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(pass.calls) * state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(pass.bytes) * state.iterations());
}

void add(
    const std::string& row, std::ios_base::openmode direction, StreamPass streamPass,
    MemoryPass memoryPass, std::size_t chunk = 1) {
    for (const Peer& peer : peers()) {
        benchmark::RegisterBenchmark((row + "/" + peer.name).c_str(), [=](benchmark::State& state) {
            const HeapShift shift;
            const std::unique_ptr<std::streambuf> buffer = peer.open();
            repeat(state, [&] {
                buffer->pubseekpos(0, direction);
                return streamPass(*buffer, chunk);
            });
        });
    }
    benchmark::RegisterBenchmark((row + "/memcpy").c_str(), [=](benchmark::State& state) {
        const HeapShift shift;
        repeat(state, [&] { return memoryPass(chunk); });
    });
}

const bool streamsAdded = [] {
    add("sbumpc", in, readCharacters, copyCharacters);
    add("sputc", out, writeCharacters, copyCharacters);
    add("getline", in, readLines, copyLines);
    struct Size {
        const char* name;
        std::size_t bytes;
    };
    for (const Size size :
         {Size{"10", 10}, Size{"100", 100}, Size{"4KiB", 4 << 10}, Size{"8KiB", 8 << 10},
          Size{"64KiB", 64 << 10}, Size{"1MiB", 1 << 20}}) {
        add(std::string("sgetn-") + size.name, in, readChunks, copyFromSource, size.bytes);
        add(std::string("sputn-") + size.name, out, writeChunks, copyToSink, size.bytes);
    }
    return true;
}();

} // namespace
} // namespace agent::orvi::bench
