// A file written beside its target and renamed over it on commit, so a failed
// or interrupted write never destroys the previous contents.
#pragma once

#include <QSaveFile>

#include <string>
#include <string_view>

class AtomicFile {
public:
    enum class Mode { Binary, Text };

    explicit AtomicFile(const std::string& path);
    // The temporary file is dropped unless commit() succeeded.
    ~AtomicFile() = default;
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool open(Mode mode);
    // Writes are buffered; a failure is remembered and reported by commit().
    void write(std::string_view bytes);
    void write(const void* data, std::size_t size);
    // Flushes, then renames the temporary file over the target.
    bool commit();
    // errno-like description of the last failure, for the log.
    std::string errorText() const;
    // errno seen at the last failure (0 when unknown).
    int errorNumber() const { return m_errno; }

private:
    void flushBuffer();

    QSaveFile m_file;
    std::string m_buffer;
    bool m_failed = false;
    int m_errno = 0;
};
