#include "files/Project.h"

#include "base/Text.h"

ProjectSettings Project::settings() const
{
    std::lock_guard lock(m_mutex);
    return m_settings;
}

bool Project::apply(const ProjectSettings& s)
{
    std::lock_guard lock(m_mutex);
    if (m_settings == s)
        return false;
    m_settings = s;
    return true;
}

void Project::setDefaultDisplay()
{
    std::lock_guard lock(m_mutex);
    m_settings.ShowGraph = true;
    m_settings.ShowWatch = true;
    m_settings.TimeResolutionUs = 1000000;
}

void Project::clearTrigger()
{
    std::lock_guard lock(m_mutex);
    m_settings.TriggerSymbol = nullptr;
    m_settings.TriggerLevel = 0.0;
    m_settings.TriggerOn = m_settings.TriggerAuto = m_settings.TriggerRise = m_settings.TriggerFall = false;
    m_settings.TriggerFired = false;
}

bool Project::applyTrigger(const ProjectSettings& s)
{
    std::lock_guard lock(m_mutex);
    ProjectSettings next = m_settings;
    next.TriggerSymbol = s.TriggerSymbol;
    next.TriggerLevel = s.TriggerLevel;
    next.TriggerOn = s.TriggerOn;
    next.TriggerAuto = s.TriggerAuto;
    next.TriggerRise = s.TriggerRise;
    next.TriggerFall = s.TriggerFall;
    next.TriggerFired = s.TriggerFired;
    if (next == m_settings)
        return false;
    m_settings = next;
    return true;
}

std::string Project::path() const
{
    std::lock_guard lock(m_mutex);
    return m_path;
}

void Project::setPath(const std::string& path)
{
    std::lock_guard lock(m_mutex);
    m_path = text::truncated(path, text::kPathSize);
}

void Project::setTimeResolution(std::uint32_t microseconds)
{
    std::lock_guard lock(m_mutex);
    m_settings.TimeResolutionUs = microseconds;
}

std::string Project::keptTriggerName() const
{
    std::lock_guard lock(m_mutex);
    return m_keptTriggerName;
}

void Project::setKeptTriggerName(const std::string& name)
{
    std::lock_guard lock(m_mutex);
    m_keptTriggerName = text::truncated(name, text::kNameSize);
}
