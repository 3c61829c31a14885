// The menu commands that export the sample store: ask for the file with the
// "Export Data" dialog, remember the choice in the project, write the file.
#pragma once

class Controller;

// 0 when written or when the dialog was cancelled, -1 when writing failed
// (the failure has been shown).
int ExportCsvCommand(Controller& controller);
int ExportRawCommand(Controller& controller);
