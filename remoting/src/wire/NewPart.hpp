#pragma once

#include "wire/Messages.hpp"

namespace agent::orvi::remoting::details {

inline void give(v1::Frame& frame, v1::Hello* part) {
    frame.set_allocated_hello(part);
}

inline void give(v1::Frame& frame, v1::Want* part) {
    frame.set_allocated_want(part);
}

inline void give(v1::Frame& frame, v1::Unwant* part) {
    frame.set_allocated_unwant(part);
}

inline void give(v1::Frame& frame, v1::Offer* part) {
    frame.set_allocated_offer(part);
}

inline void give(v1::Frame& frame, v1::Withdrawal* part) {
    frame.set_allocated_withdrawal(part);
}

inline void give(v1::Frame& frame, v1::Settled* part) {
    frame.set_allocated_settled(part);
}

inline void give(v1::Frame& frame, v1::Request* part) {
    frame.set_allocated_request(part);
}

inline void give(v1::Frame& frame, v1::Answer* part) {
    frame.set_allocated_answer(part);
}

inline void give(v1::Frame& frame, v1::Failure* part) {
    frame.set_allocated_failure(part);
}

inline void give(v1::Frame& frame, v1::Abandon* part) {
    frame.set_allocated_abandon(part);
}

inline void give(v1::Value& value, v1::TextList* part) {
    value.set_allocated_texts(part);
}

inline void give(v1::Value& value, v1::ValueList* part) {
    value.set_allocated_list(part);
}

inline void give(v1::Value& value, v1::ValueMap* part) {
    value.set_allocated_map(part);
}

/// Give a message the one part of several that it can have, and return it.
///
/// The generated accessors that make a part leave the message, when there is no memory for it, with
/// one that is not there, which its destructor then touches.
template <class Part, class Message>
Part& newPart(Message& message) {
    auto* const part = new Part;
    give(message, part);
    return *part;
}

} // namespace agent::orvi::remoting::details
