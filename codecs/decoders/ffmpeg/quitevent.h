#pragma once
// Seam: the host's named quit event. Linux: a FIFO. A name that doesn't begin
// with "/" means "/tmp/" + the name with "/" and "\" replaced by "_". The
// FIFO is created when missing and opened read-write and non-blocking, so it
// never reports a hang-up; "readable" means "set". The host sets the event by
// writing one byte and resets it by reading it. Only a FIFO of this user is
// opened, never through a symbolic link. An empty name gives a private event.

#include <optional>
#include <string>

#include "support/clString.h"
#include "transport/waitable.h"

// The file-system path that stands for the event called `name`.
std::string QuitEventPath(const clString& name);
// The event as an aborter that owns its descriptor; nothing when the name
// can't be made into a FIFO, is something else, or isn't this user's.
std::optional<Qel::aborter> OpenQuitEvent(const clString& name);
