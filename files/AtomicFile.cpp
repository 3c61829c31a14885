#include "files/AtomicFile.h"

#include <QString>

#include <cerrno>

namespace {
// Large enough that a million-line export is a few hundred system calls.
constexpr std::size_t kFlushSize = 1 << 20;
}  // namespace

AtomicFile::AtomicFile(const std::string& path) : m_file(QString::fromStdString(path))
{
    // Never fall back to writing the target in place: that is what we avoid.
    m_file.setDirectWriteFallback(false);
}

bool AtomicFile::open(Mode mode)
{
    QIODevice::OpenMode flags = QIODevice::WriteOnly;
    if (mode == Mode::Text)
        flags |= QIODevice::Text;
    errno = 0;
    m_failed = !m_file.open(flags);
    if (m_failed)
        m_errno = errno;
    return !m_failed;
}

void AtomicFile::write(std::string_view bytes)
{
    if (m_failed)
        return;
    m_buffer.append(bytes);
    if (m_buffer.size() >= kFlushSize)
        flushBuffer();
}

void AtomicFile::write(const void* data, std::size_t size)
{
    write(std::string_view(static_cast<const char*>(data), size));
}

void AtomicFile::flushBuffer()
{
    if (m_failed || m_buffer.empty())
        return;
    const qint64 written = m_file.write(m_buffer.data(), static_cast<qint64>(m_buffer.size()));
    if (written != static_cast<qint64>(m_buffer.size())) {
        m_failed = true;
        m_errno = errno;
        m_file.cancelWriting();
    }
    m_buffer.clear();
}

bool AtomicFile::commit()
{
    flushBuffer();
    if (m_failed || !m_file.isOpen())
        return false;
    errno = 0;
    if (!m_file.commit()) {
        m_failed = true;
        m_errno = errno;
        return false;
    }
    return true;
}

std::string AtomicFile::errorText() const { return m_file.errorString().toStdString(); }
