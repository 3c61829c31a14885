// SaveProject: builds the project document in its fixed element and
// attribute order and writes it atomically.
#include "base/AtomicFile.h"
#include "files/Project.h"
#include "files/ProjectFormat.h"

#include "base/Log.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <tinyxml2.h>

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

namespace {

const char* interfaceName(std::uint32_t targetInterface)
{
    switch (targetInterface) {
    case kInterfaceJtag: return "JTAG";
    case kInterfaceFine: return "FINE";
    default: return "SWD";  // SWD and anything unknown
    }
}

void setInt(XMLElement* e, const char* name, std::int64_t value) { e->SetAttribute(name, value); }
void setUnsigned(XMLElement* e, const char* name, std::uint32_t value) { e->SetAttribute(name, value); }
void setFlag(XMLElement* e, const char* name, bool value) { e->SetAttribute(name, value ? 1 : 0); }
void setText(XMLElement* e, const char* name, const std::string& value) { e->SetAttribute(name, value.c_str()); }
void setDouble(XMLElement* e, const char* name, double value)
{
    e->SetAttribute(name, projectfile::formatDouble(value).c_str());
}

XMLElement* child(XMLElement* parent, const char* name) { return parent->InsertNewChildElement(name); }

void writeNamed(XMLElement* parent, const char* name, const std::string& path)
{
    setText(child(parent, name), "Name", path);
}

void writeConfiguration(XMLElement* configuration, const ProjectSettings& s)
{
    XMLElement* o = child(child(configuration, "Tarvo"), "Options");
    setUnsigned(o, "Connection", s.ExistingSession ? kConnectionExistingSession : s.Connection);
    setFlag(o, "IsQTXSession", s.IsQTXSession);
    setFlag(o, "IsQTXWithTimeStamp", s.IsQTXWithTimeStamp);
    setUnsigned(o, "SamplingPeriod", s.SamplingPeriod);
    setUnsigned(o, "SerialNo", s.SerialNo);
    setInt(o, "JTAG_IRPre", s.JTAG_IRPre);
    setInt(o, "JTAG_DRPre", s.JTAG_DRPre);
    setText(o, "IP", s.IP);
    setText(o, "TargetDevice", s.TargetDevice);
    setText(o, "TargetInterface", interfaceName(s.TargetInterface));
    setUnsigned(o, "InterfaceSpeed", s.InterfaceSpeed);

    if (!s.ScriptFile.empty())
        writeNamed(configuration, "ScriptFile", s.ScriptFile);
    writeNamed(configuration, "ElfFile", s.ElfFile);
    if (!s.DataFile.empty())
        writeNamed(configuration, "DataFile", s.DataFile);
    // A raw file is recorded only beside a data file (then even when empty).
    if (!s.DataFile.empty())
        writeNamed(configuration, "RawFile", s.RawFile);

    setUnsigned(child(child(configuration, "Scope"), "Options"), "TimeResolutionUs", s.TimeResolutionUs);

    if (s.TriggerSymbol) {
        XMLElement* t = child(child(configuration, "Trigger"), "Options");
        setInt(t, "Level", projectfile::truncatedToInteger(s.TriggerLevel));
        setText(t, "Symbol", s.TriggerSymbol->Name);
        setFlag(t, "On", s.TriggerOn);
        setFlag(t, "Auto", s.TriggerAuto);
        setFlag(t, "Rise", s.TriggerRise);
        setFlag(t, "Fall", s.TriggerFall);
    }
}

void writeSymbol(XMLElement* list, const Node& n)
{
    XMLElement* o = child(child(list, "Symbol"), "Options");
    setText(o, "Name", n.Name);
    setText(o, "Address", projectfile::formatAddress(n.Address));
    setText(o, "Type", std::string(n.Type));
    setInt(o, "TypeID", n.TypeID);
    setUnsigned(o, "Size", n.Size);
    setInt(o, "GraphColorRed", n.symbol().GraphColor.red);
    setInt(o, "GraphColorGreen", n.symbol().GraphColor.green);
    setInt(o, "GraphColorBlue", n.symbol().GraphColor.blue);
    setDouble(o, "YMinSampled", n.symbol().YMinSampled);
    setDouble(o, "YMaxSampled", n.symbol().YMaxSampled);
    setDouble(o, "YAvgSampled", n.symbol().YAvgSampled);
    setInt(o, "Offset", n.symbol().Offset);
    setFlag(o, "ShowInGraph", n.symbol().ShowInGraph);
    setInt(o, "YOffset", projectfile::truncatedToInteger(n.symbol().YOffset));
    setFlag(o, "IsAutoConfig", n.symbol().IsAutoConfig);
    setUnsigned(o, "YResolution", n.symbol().YResolution);
    setInt(o, "MaxValue", projectfile::truncatedToInteger(n.MaxValue));
    setText(o, "File", std::string(n.File));
    setInt(o, "DrawStyle", n.symbol().DrawStyle);
    setText(o, "NameWithParents", n.NameWithParents);
    setFlag(o, "ManualYResolution", n.symbol().ManualYResolution);
}

}  // namespace

int SaveProject(const std::string& path, const Project& project, const SymbolDatabase& symbols)
{
    const ProjectSettings s = project.settings();

    XMLDocument doc;
    doc.InsertEndChild(doc.NewDeclaration("xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\""));
    XMLElement* root = doc.NewElement("PlotvikProject");
    if (!root)
        return -1;
    doc.InsertEndChild(root);

    XMLElement* version = child(root, "FileVersion");
    version->SetAttribute("major", projectfile::kFileVersionMajor);
    version->SetAttribute("minor", projectfile::kFileVersionMinor);

    XMLElement* proj = child(root, "Project");
    writeConfiguration(child(proj, "Configuration"), s);
    XMLElement* windows = child(proj, "Windows");
    setFlag(child(windows, "Graph"), "Show", s.ShowGraph);
    setFlag(child(windows, "Watch"), "Show", s.ShowWatch);
    XMLElement* list = child(proj, "SelectedSymbols");
    for (const Node* n : symbols.selected())
        if (n)
            writeSymbol(list, *n);

    tinyxml2::XMLPrinter printer;
    doc.Print(&printer);
    AtomicFile file(path);
    if (!file.open(AtomicFile::Mode::Text)) {
        Log::instance().errorf("Could not write project file [%s]: %s", path.c_str(), file.errorText().c_str());
        return -1;
    }
    // CStrSize counts the terminating zero.
    file.write(printer.CStr(), static_cast<std::size_t>(printer.CStrSize() > 0 ? printer.CStrSize() - 1 : 0));
    if (!file.commit()) {
        Log::instance().errorf("Could not write project file [%s]: %s", path.c_str(), file.errorText().c_str());
        return -1;
    }
    return 0;
}
