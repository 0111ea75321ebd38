// SIGINT and SIGTERM end a run between files: the files being read are
// finished and written whole, no other is started, and the signal is then
// raised again so that the shell sees the status it expects.
#ifndef KZDUMP_INTERRUPT_H
#define KZDUMP_INTERRUPT_H

namespace kzdump {

void CatchStopSignals();
// The signal that asked the run to stop; 0 while none has.
int StopSignal();
// A descriptor that becomes readable when a stop signal comes, so that a
// wait for input (a path list from a pipe) ends on any thread.
int StopWakeDescriptor();
// Ends the process by the stop signal, with its default action.
[[noreturn]] void RaiseStopSignal();

}  // namespace kzdump

#endif  // KZDUMP_INTERRUPT_H
