// record --trigger: a trigger for one run, given on the command line instead
// of the project's, and the texts that report it.
#pragma once

#include "base/ProjectSettings.h"

#include <string>
#include <vector>

class Project;

struct TriggerOption {
    bool given = false;
    bool off = false;  // "--trigger off"
    std::string name;  // a selected symbol's name with parents
    bool rise = false, fall = false;
    double level = 0.0;
};

// Reads "NAME:rise|fall|both:LEVEL" or "off". The name may hold colons
// (C++ scopes): the last two fields are taken from the right. False with the
// reason in `error` when the text is malformed.
bool parseTriggerOption(const std::string& text, TriggerOption& out, std::string& error);

// Makes the option the project's trigger (not marked modified: the project is
// not saved). False with the reason when NAME is not a selected symbol.
bool applyTriggerOption(const TriggerOption& option, Project& project, const std::vector<Node*>& selected,
                        std::string& error);

// "a rising edge of g_square through 1", and why it can never fire when so.
std::string describeTrigger(const ProjectSettings& s);
