#pragma once
// The door to an engine. Each engine is a module of its own, so that a runtime that one of them
// lacks doesn't keep the other from starting.

extern "C" {
/// Runs the engine until the parent hangs up; returns the process's exit status. `socket` is
/// connected to the parent, `model` the folder with the model's files.
[[gnu::visibility("default")]] int mnemoraRunEngine(int socket, const char* model);
}
