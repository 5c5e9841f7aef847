// All that the library remembers stands in one linker section.
//
// Every mutable global is marked DPM_STATE, which places it there; nothing else is mutable.  So the
// state of a whole card can be exchanged as one run of bytes, and a test can hold two cards in one
// process.  Marked objects are plain data: no constructor, no destructor, no pointer from outside
// that outlives the process.
#pragma once

#define DPM_STATE __attribute__((section("dpm_state")))
