// Noticing that the project's ELF file was rebuilt, and asking whether to
// re-parse it keeping or clearing the selection.
#pragma once

class Controller;

// The "Check modified ELF" job body. Posts a matching re-parse when the user
// agrees. Always clears the controller's pending-check mark.
int CheckElfModification(Controller& controller);
