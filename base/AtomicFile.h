// A file written beside its target and renamed over it on commit, so a failed
// or interrupted write never destroys the previous contents: the target is
// always the complete old file or the complete new one.
//
// Every write of one target goes through the same temporary name, held under
// an exclusive lock while it is written. A temporary file left by a writer
// that was killed is therefore taken over and truncated by the next write of
// that target, and two writers of one target (two running instances) take
// turns instead of mixing their bytes.
#pragma once

#include <string>
#include <string_view>

class AtomicFile {
public:
    // Text and binary write the same bytes here; the mode stays for the
    // platforms that translate line ends.
    enum class Mode { Binary, Text };

    explicit AtomicFile(const std::string& path);
    // The temporary file is removed unless commit() succeeded.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool open(Mode mode);
    // Writes are buffered; a failure is remembered and reported by commit().
    void write(std::string_view bytes);
    void write(const void* data, std::size_t size);
    // Flushes and syncs the temporary file, renames it over the target and
    // syncs the folder, so the new contents survive a power cut once this
    // returns true.
    bool commit();
    // errno-like description of the last failure, for the log.
    std::string errorText() const;
    // errno seen at the last failure (0 when unknown).
    int errorNumber() const { return m_errno; }

    // The temporary file a write of `path` goes through.
    static std::string temporaryPath(const std::string& path);

private:
    void fail(int err);
    void flushBuffer();
    // Removes the temporary file while still holding its lock, then closes it.
    void discard();

    std::string m_path;
    std::string m_temp;
    std::string m_buffer;
    int m_fd = -1;
    bool m_failed = false;
    int m_errno = 0;
};
