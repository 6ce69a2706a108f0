// Start of the runtime module: the app module and the design and run-time
// classes of the application.
#pragma once

namespace RtnGlobal {
// Opens the app module and registers the runtime classes with their file
// aliases; traces its start and end.
void init();
}
