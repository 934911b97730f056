#include "RestoreSchedule.h"

#include <algorithm>
#include <numeric>

#include "CommandLine.h"

std::vector<size_t> LargestFirst(const std::vector<uint64_t>& sizes) {
    std::vector<size_t> order(sizes.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return sizes[a] > sizes[b]; });
    return order;
}

std::wstring CatalogueDifference(const std::vector<CatalogueRow>& first,
                                 const std::vector<CatalogueRow>& other) {
    if (first.size() != other.size()) {
        return L"it lists " + std::to_wstring(other.size()) + L" files, the first session " +
               std::to_wstring(first.size());
    }
    for (size_t i = 0; i < first.size(); ++i) {
        if (first[i].index != other[i].index || first[i].path != other[i].path) {
            return L"index " + std::to_wstring(first[i].index) + L" is " + other[i].path +
                   L" there, " + first[i].path + L" for the first session";
        }
    }
    return std::wstring();
}

bool FileQueue::Next(size_t* position) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_pending.empty() || m_taken == 0; });
    if (m_pending.empty()) {
        return false;
    }
    *position = m_pending.front();
    m_pending.pop_front();
    ++m_taken;
    return true;
}

void FileQueue::Finished() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_taken;
    }
    m_changed.notify_all();
}

void FileQueue::GiveBack(size_t position) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_taken;
        m_pending.push_front(position);
    }
    m_changed.notify_all();
}

std::wstring InFlightLabel(const std::vector<std::wstring>& backupPaths) {
    if (backupPaths.size() == 1) {
        return backupPaths.front();
    }
    std::wstring label = std::to_wstring(backupPaths.size()) + L" files:";
    for (size_t i = 0; i < backupPaths.size(); ++i) {
        const std::wstring& path = backupPaths[i];
        const size_t slash = path.find_last_of(L"/\\");
        label +=
            (i == 0 ? L" " : L", ") + (slash == std::wstring::npos ? path : path.substr(slash + 1));
    }
    return label;
}

int RestoreExitCode(const std::vector<FileOutcome>& outcomes, size_t sessions, size_t lost,
                    bool cancelled) {
    if (cancelled) {
        return ExitCancelled;
    }
    if (lost >= sessions) {
        return ExitNetWorker;
    }
    const bool allRestored =
        std::all_of(outcomes.begin(), outcomes.end(),
                    [](const FileOutcome& o) { return o.result == FileResult::Restored; });
    return allRestored && lost == 0 ? ExitOk : ExitFilesFailed;
}
