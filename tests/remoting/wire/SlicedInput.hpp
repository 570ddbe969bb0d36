#pragma once

#include <google/protobuf/io/zero_copy_stream.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {

/// Hands out bytes in slices, each of which is memory of its own, so that reading beyond one shows.
class SlicedInput : public google::protobuf::io::ZeroCopyInputStream {
public:
    /// @param sliceSize tells the size of each next slice; at least 1.
    SlicedInput(std::string_view bytes, const std::function<std::size_t()>& sliceSize) {
        while (!bytes.empty()) {
            const std::size_t size = std::min(sliceSize(), bytes.size());
            slices.emplace_back(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
            bytes.remove_prefix(size);
        }
    }

    /// All slices have the same size.
    SlicedInput(std::string_view bytes, std::size_t sliceSize)
        : SlicedInput(bytes, [=] { return sliceSize; }) {}

    bool Next(const void** data, int* size) override {
        if (slice < slices.size() && offset == slices[slice].size()) {
            ++slice;
            offset = 0;
        }
        if (slice == slices.size()) {
            return false;
        }
        *data = slices[slice].data() + offset;
        *size = static_cast<int>(slices[slice].size() - offset);
        offset = slices[slice].size();
        count += *size;
        return true;
    }

    void BackUp(int size) override {
        offset -= static_cast<std::size_t>(size);
        count -= size;
    }

    bool Skip(int size) override {
        const void* data = nullptr;
        int available = 0;
        while (size > 0 && Next(&data, &available)) {
            if (available > size) {
                BackUp(available - size);
            }
            size -= std::min(available, size);
        }
        return size == 0;
    }

    std::int64_t ByteCount() const override { return count; }

private:
    std::vector<std::vector<char>> slices;
    std::size_t slice = 0;
    std::size_t offset = 0; // of what has been handed out of the slice
    std::int64_t count = 0;
};

} // namespace agent::orvi::remoting::details::test
