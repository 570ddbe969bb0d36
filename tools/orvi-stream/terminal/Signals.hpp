#pragma once

/// Signals are taken by threads that wait for them: no handler interrupts anything.
namespace agent::orvi::tool {

/// Keep the signals that end the program from this thread and from those it starts later, and turn
/// a write to a closed pipe into an error.
///
/// A hang-up that is ignored already, as under nohup, stays ignored.
void holdSignals();

/// Block until one of the signals that end the program has come.
///
/// @return its number.
int awaitSignal();

/// From now on, end the program as soon as one of these signals comes.
///
/// @param beforeTheEnd called on another thread; shall not throw.
void endOnSignal(void (*beforeTheEnd)() = nullptr);

} // namespace agent::orvi::tool
