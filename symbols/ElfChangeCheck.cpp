#include "symbols/ElfChangeCheck.h"

#include "app/Controller.h"

int CheckElfModification(Controller& controller)
{
    // The comparison with the stored time stamp arrives with the re-matching.
    controller.setElfCheckPending(false);
    return 0;
}
