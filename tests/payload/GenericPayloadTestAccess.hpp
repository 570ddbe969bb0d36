#pragma once

#include "payload/GenericPayload.hpp"

namespace agent::orvi::core::detail {

/// Makes payloads that no public operation makes: with slots, but without the arrays beside them.
struct GenericPayloadTestAccess {
    static GenericPayload withoutTypes(GenericPayload payload) {
        payload.typeHashes.clear();
        return payload;
    }

    static GenericPayload withoutFutureFlags(GenericPayload payload) {
        payload.futureFlags.clear();
        return payload;
    }

    static GenericPayload withoutPackedFlags(GenericPayload payload) {
        payload.packedFlags.clear();
        return payload;
    }
};

} // namespace agent::orvi::core::detail
