// LoadProject: reads a project document into a fresh settings record and a
// new selected-symbol list. Whatever part fails, what was read is applied.
#include "files/Project.h"
#include "files/ProjectFormat.h"

#include "base/Report.h"
#include "base/Text.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <QFile>
#include <QString>

#include <tinyxml2.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

using tinyxml2::XMLElement;

namespace {

constexpr const char* kNewerVersionWarning =
    "The project has a newer file version and might not be compatible with this version of Plotvik.";

// The C library's decimal conversions: text that is no number reads as 0.
std::int64_t integer(const char* s) { return std::atoll(s); }
double decimal(const char* s) { return std::atof(s); }

const XMLElement* options(const XMLElement* parent, const char* name)
{
    const XMLElement* e = parent->FirstChildElement(name);
    return e ? e->FirstChildElement("Options") : nullptr;
}

// Required text attribute cut to its field; false when absent.
bool requiredText(const XMLElement* e, const char* name, std::size_t size, std::string& out)
{
    const char* v = e->Attribute(name);
    if (!v)
        return false;
    out = text::truncated(v, size);
    return true;
}

template <typename T>
bool requiredInteger(const XMLElement* e, const char* name, T& out)
{
    const char* v = e->Attribute(name);
    if (!v)
        return false;
    out = static_cast<T>(integer(v));
    return true;
}

template <typename T>
void optionalInteger(const XMLElement* e, const char* name, T& out, T absent)
{
    const char* v = e->Attribute(name);
    out = v ? static_cast<T>(integer(v)) : absent;
}

bool parseInterface(const char* v, std::uint32_t& out)
{
    const std::string_view name(v);
    if (name == "JTAG")
        out = kInterfaceJtag;
    else if (name == "SWD")
        out = kInterfaceSwd;
    else if (name == "FINE")
        out = kInterfaceFine;
    else
        return false;
    return true;
}

int readTarvo(const XMLElement* configuration, ProjectSettings& s)
{
    const XMLElement* o = options(configuration, "Tarvo");
    if (!o)
        return -1;
    const char* v = o->Attribute("IsQTXSession");
    s.IsQTXSession = v && integer(v) == 1;
    v = o->Attribute("IsQTXWithTimeStamp");
    s.IsQTXWithTimeStamp = !v || integer(v) == 1;
    optionalInteger<std::uint32_t>(o, "SamplingPeriod", s.SamplingPeriod, 1000);
    std::int64_t connection = 0;
    if (!requiredInteger(o, "Connection", connection))
        return -1;
    // Only 2 means TCP/IP: an existing-session project (4) reopens as USB.
    s.Connection = connection == kConnectionTcpIp ? kConnectionTcpIp : kConnectionUsb;
    optionalInteger<std::int32_t>(o, "JTAG_IRPre", s.JTAG_IRPre, 0);
    optionalInteger<std::int32_t>(o, "JTAG_DRPre", s.JTAG_DRPre, 0);
    if (s.Connection == kConnectionUsb)
        optionalInteger<std::uint32_t>(o, "SerialNo", s.SerialNo, 0);
    else if (!requiredText(o, "IP", kHostSize, s.IP))
        return -1;
    if (!requiredText(o, "TargetDevice", kDeviceNameSize, s.TargetDevice))
        return -1;
    v = o->Attribute("TargetInterface");
    if (!v || !parseInterface(v, s.TargetInterface))
        return -1;
    if (!requiredInteger(o, "InterfaceSpeed", s.InterfaceSpeed))
        return -1;
    return 0;
}

int readOptionalPath(const XMLElement* configuration, const char* element, std::string& out)
{
    const XMLElement* e = configuration->FirstChildElement(element);
    if (!e)
        return 0;
    return requiredText(e, "Name", text::kPathSize, out) ? 0 : -1;
}

int readTrigger(const XMLElement* configuration, ProjectSettings& s, Project& project)
{
    const XMLElement* trigger = configuration->FirstChildElement("Trigger");
    if (!trigger)
        return 0;
    const XMLElement* o = trigger->FirstChildElement("Options");
    if (!o)
        return -1;
    const char* level = o->Attribute("Level");
    if (!level)
        return -1;
    s.TriggerLevel = decimal(level);
    const char* symbol = o->Attribute("Symbol");
    if (!symbol)
        return -1;
    project.setKeptTriggerName(symbol);
    const char* names[] = {"On", "Auto", "Rise", "Fall"};
    bool* flags[] = {&s.TriggerOn, &s.TriggerAuto, &s.TriggerRise, &s.TriggerFall};
    for (std::size_t i = 0; i < 4; ++i) {
        const char* v = o->Attribute(names[i]);
        if (!v)
            return -1;
        *flags[i] = integer(v) != 0;
    }
    return 0;
}

int readConfiguration(const XMLElement* project, ProjectSettings& s, Project& target)
{
    const XMLElement* configuration = project->FirstChildElement("Configuration");
    if (!configuration || readTarvo(configuration, s) != 0)
        return -1;
    if (readOptionalPath(configuration, "ScriptFile", s.ScriptFile) != 0 ||
        readOptionalPath(configuration, "ElfFile", s.ElfFile) != 0 ||
        readOptionalPath(configuration, "DataFile", s.DataFile) != 0 ||
        readOptionalPath(configuration, "RawFile", s.RawFile) != 0)
        return -1;
    const XMLElement* scope = options(configuration, "Scope");
    if (!scope || !requiredInteger(scope, "TimeResolutionUs", s.TimeResolutionUs))
        return -1;
    return readTrigger(configuration, s, target);
}

void readShow(const XMLElement* windows, const char* name, bool& flag)
{
    const XMLElement* e = windows->FirstChildElement(name);
    const char* v = e ? e->Attribute("Show") : nullptr;
    if (v)
        flag = integer(v) != 0;
}

// --- per-key readers of a selected symbol, run in this order -------------

using KeyReader = int (*)(const XMLElement*, Node&);

int readName(const XMLElement* o, Node& n) { return requiredText(o, "Name", text::kNameSize, n.Name) ? 0 : -1; }

int readAddress(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("Address");
    const auto address = v ? projectfile::parseAddress(v) : std::nullopt;
    if (!address)
        return -1;
    n.Address = *address;
    return 0;
}

int readType(const XMLElement* o, Node& n)
{
    std::string type;
    if (!requiredText(o, "Type", text::kNameSize, type))
        return -1;
    n.Type = text::intern(type);
    return 0;
}

int readSize(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("Size");
    const auto size = v ? projectfile::parseNumber(v) : std::nullopt;
    if (!size)
        return -1;
    n.Size = static_cast<std::uint32_t>(*size);
    return 0;
}

int readTypeId(const XMLElement* o, Node& n)
{
    if (const char* v = o->Attribute("TypeID")) {
        const auto id = projectfile::parseNumber(v);
        if (!id)
            return -1;
        n.TypeID = static_cast<std::int32_t>(*id);
        return 0;
    }
    // Older files: derive the id from the type text, size and signedness.
    const char* isSigned = o->Attribute("IsSigned");
    if (!isSigned)
        return -1;
    n.IsSigned = integer(isSigned) == 1;
    n.TypeID = projectfile::deriveTypeId(n.Type, n.Size, n.IsSigned);
    return 0;
}

int readGraphColor(const XMLElement* o, Node& n)
{
    const char* r = o->Attribute("GraphColorRed");
    const char* g = o->Attribute("GraphColorGreen");
    const char* b = o->Attribute("GraphColorBlue");
    if (!r || !g || !b)
        return -1;
    const auto component = [](const char* v) {
        const std::int64_t c = integer(v);
        return static_cast<std::int32_t>(std::clamp<std::int64_t>(c, INT32_MIN, INT32_MAX));
    };
    n.symbol().GraphColor = Rgb{component(r), component(g), component(b), 255};
    n.symbol().HasGraphColor = true;
    return 0;
}

// Absent statistics read as 0, not as the record's defaults.
int readYMinSampled(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("YMinSampled");
    n.symbol().YMinSampled = v ? decimal(v) : 0.0;
    return 0;
}

int readYMaxSampled(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("YMaxSampled");
    n.symbol().YMaxSampled = v ? decimal(v) : 0.0;
    return 0;
}

int readYAvgSampled(const XMLElement* o, Node& n)
{
    // Read as an integer: only "1" (or anything starting with it) gives 1.
    const char* v = o->Attribute("YAvgSampled");
    n.symbol().YAvgSampled = (v && integer(v) == 1) ? 1.0 : 0.0;
    return 0;
}

int readOffset(const XMLElement* o, Node& n)
{
    optionalInteger<std::int32_t>(o, "Offset", n.symbol().Offset, 0);
    return 0;
}

int readShowInGraph(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("ShowInGraph");
    if (!v)
        return -1;
    n.symbol().ShowInGraph = integer(v) == 1;
    return 0;
}

int readYOffset(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("YOffset");
    if (!v)
        return -1;
    n.symbol().YOffset = decimal(v);
    return 0;
}

int readIsAutoConfig(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("IsAutoConfig");
    if (!v)
        return -1;
    n.symbol().IsAutoConfig = integer(v) == 1;
    return 0;
}

int readYResolution(const XMLElement* o, Node& n) { return requiredInteger(o, "YResolution", n.symbol().YResolution) ? 0 : -1; }

int readMaxValue(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("MaxValue");
    if (!v)
        return -1;
    n.MaxValue = static_cast<double>(integer(v));
    return 0;
}

int readFile(const XMLElement* o, Node& n)
{
    std::string file;
    if (!requiredText(o, "File", text::kPathSize, file))
        return -1;
    n.File = text::intern(file);
    return 0;
}

int readDrawStyle(const XMLElement* o, Node& n)
{
    optionalInteger<std::int32_t>(o, "DrawStyle", n.symbol().DrawStyle, 0);
    return 0;
}

int readNameWithParents(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("NameWithParents");
    n.NameWithParents = v ? std::string(v) : n.Name;
    return 0;
}

// Absent in files written before the flag existed: automatic then.
int readManualYResolution(const XMLElement* o, Node& n)
{
    const char* v = o->Attribute("ManualYResolution");
    n.symbol().ManualYResolution = v && integer(v) != 0;
    return 0;
}

constexpr KeyReader kKeyReaders[] = {
    readName,        readAddress,     readType,         readSize,        readTypeId,       readGraphColor,
    readYMinSampled, readYMaxSampled, readYAvgSampled,  readOffset,      readShowInGraph,  readYOffset,
    readIsAutoConfig, readYResolution, readMaxValue,    readFile,        readDrawStyle,    readNameWithParents,
    readManualYResolution,
};

// Fills `list` in document order; the first failing symbol ends the list.
int readSymbols(const XMLElement* selected, SymbolDatabase& symbols, std::vector<Node*>& list)
{
    for (const XMLElement* e = selected->FirstChildElement("Symbol"); e; e = e->NextSiblingElement("Symbol")) {
        Node* n = symbols.createDetachedSymbol();
        list.push_back(n);
        const XMLElement* o = e->FirstChildElement("Options");
        if (!o)
            return -1;
        int result = 0;
        for (KeyReader read : kKeyReaders)
            result |= read(o, *n);  // every reader runs, so the record is as full as it can be
        if (result != 0)
            return -1;
    }
    return 0;
}

Node* findTriggerSymbol(const std::vector<Node*>& selected, const std::string& name)
{
    Node* found = nullptr;
    for (Node* n : selected)
        if (n && text::equalsFolded(n->Name, name))
            found = n;  // the last equal one wins
    return found;
}

bool parseFile(const std::string& path, tinyxml2::XMLDocument& doc, std::string& reason)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        reason = file.errorString().toStdString();
        return false;
    }
    const QByteArray bytes = file.readAll();
    if (doc.Parse(bytes.constData(), static_cast<std::size_t>(bytes.size())) != tinyxml2::XML_SUCCESS) {
        reason = std::string("Not a readable XML document: ") + doc.ErrorStr();
        return false;
    }
    return true;
}

void refreshViews()
{
    if (Bridge* b = report::bridge()) {
        b->updateData();
        b->updateGui();
    }
}

int readDocument(const tinyxml2::XMLDocument& doc, Project& project, SymbolDatabase& symbols)
{
    const XMLElement* root = doc.FirstChildElement("PlotvikProject");
    const XMLElement* version = root ? root->FirstChildElement("FileVersion") : nullptr;
    if (!version)
        return -1;
    const int major = version->IntAttribute("major", 0);
    const int minor = version->IntAttribute("minor", 0);
    if (major > 1 || (major == 1 && minor >= 2))
        report::warning(kNewerVersionWarning);

    ProjectSettings s;
    int result = 0;
    const XMLElement* proj = root->FirstChildElement("Project");
    if (!proj || readConfiguration(proj, s, project) != 0) {
        result = -1;
    } else if (const XMLElement* windows = proj->FirstChildElement("Windows"); !windows) {
        result = -1;
    } else {
        readShow(windows, "Graph", s.ShowGraph);
        readShow(windows, "Watch", s.ShowWatch);
        if (const XMLElement* selected = proj->FirstChildElement("SelectedSymbols")) {
            std::vector<Node*> list;
            result = readSymbols(selected, symbols, list);
            if (list.empty())
                symbols.clearSelected();
            else
                symbols.setSelected(std::move(list));
        }
        s.TriggerSymbol = findTriggerSymbol(symbols.selected(), project.keptTriggerName());
    }
    // Partial reads stay applied.
    project.apply(s);
    return result;
}

}  // namespace

int LoadProject(const std::string& path, Project& project, SymbolDatabase& symbols, std::string* reason)
{
    tinyxml2::XMLDocument doc;
    std::string why;
    int result = -1;
    if (parseFile(path, doc, why)) {
        result = readDocument(doc, project, symbols);
        if (result != 0)
            why = "Not a Plotvik project, or one with a required element or attribute missing";
    }
    if (reason)
        *reason = result == 0 ? std::string() : why;
    refreshViews();
    return result;
}
