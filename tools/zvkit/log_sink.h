// How zvkit shows the library's log lines. The library composes its lines for a host's log file (tag, level
// word, and for errors the function, source path and line); on a terminal zvkit shows them quieter by
// default:
//
//   [ZELVA] (Info): AudioDenoise::load done.                        ->  zelva: AudioDenoise::load done.
//   [ZELVA] (Warnning): ...                                         ->  zelva: warning: ...
//   [ZELVA]: Error in FUNCTION<f>, FILE<p>, LINE<n>. text           ->  zelva: error: text
//   [ZELVA]: Error in ... using hyper specific audio denoise model  ->  zelva: using hyper specific audio ...
//
// The last one is how the denoise engine announces its hand-fused path: a notice, logged at the Error level.
// With --verbose the lines are shown exactly as the library composed them.
#pragma once

#include <string>

namespace zvkit {

// Installs zvkit's sink (through the public ZV2_SetLogCallback): lines go to standard error, quiet or as they
// are. main() calls it once before any command.
void InstallLogSink(bool verbose);
// Puts zvkit's sink back after a command has used a sink of its own for a while.
void RestoreLogSink();
// --quiet: from now on only the library's errors are shown (not its notices, nor the fused path's
// announcement).
void ShowErrorsOnly();
bool Verbose();

// The message of a library line without its decoration, nested decorations included (an engine's error line
// that quotes an assertion carries a second one). Trailing newlines are dropped.
std::string LogMessage(const std::string& line);
// The quiet form of a library line, as in the table above.
std::string QuietLogLine(const std::string& line);

}  // namespace zvkit
