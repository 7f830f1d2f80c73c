// What a group, and the library, hold of the modules whose code the group has run.
#include <algorithm>
#include <utility>

#include "concurrency/jobs/group_core.h"

namespace Orvane::Internal {

// Needs m_mutex.
void GroupCore::NoteModule(ModuleLedger& module) {
    if (std::find(m_modules.begin(), m_modules.end(), &module) == m_modules.end()) {
        m_modules.push_back(&module);
    }
}

std::vector<ModuleLedger*> GroupCore::Modules() const {
    const RankedLock lock(m_mutex);
    return m_modules;
}

// Each list is taken out under the lock, and destroyed without it: exceptions are of the users' classes.
void GroupCore::DropFailures() noexcept {
    GroupResults results;
    Entries withHandle;
    RankedLock lock(m_mutex);
    results = m_results.TakeAll();
    withHandle.TakeAll(m_withHandle);
    while (GroupEntry* const entry = withHandle.PopFront()) {
        m_withHandle.PushBack(*entry);
        HeldError error = entry->m_job->TakeError();
        const ReleasedLock released(lock, m_mutex);
        error.Drop();
    }
    lock.unlock();
}

JobWaitResult GroupCore::AwaitDeparturesOfModules() {
    for (ModuleLedger* const module : Modules()) {
        if (module->AwaitDepartures() != JobWaitResult::Over) {
            return JobWaitResult::Ring;
        }
    }
    return JobWaitResult::Over;
}

bool GroupCore::IsInDepartureOfModules() const {
    const auto modules = Modules();
    return std::any_of(modules.begin(), modules.end(),
                       [](ModuleLedger* module) { return module->IsDepartureOnThisThread(); });
}

ModuleUse GroupCore::UseOfModules() {
    ModuleUse use;
    for (const ModuleLedger* const module : Modules()) {
        if (module->IsClear()) {
            continue;
        }
        use.callables += module->Count(ModuleLedger::Callables);
        use.results += module->Count(ModuleLedger::Results);
        use.failures += module->Count(ModuleLedger::Failures);
        use.schedules += module->Count(ModuleLedger::Schedules);
        use.jobs += module->Count(ModuleLedger::Pins);
        NameWhatItHolds(*module, use.names);
        for (const auto& live : LiveJobsAndGroups()) {
            live->NameWhatItHolds(*module, use.names);
        }
    }
    return use;
}

void GroupCore::NameWhatItHolds(const ModuleLedger& module, std::vector<std::wstring>& names) {
    const RankedLock lock(m_mutex);
    const auto add = [&names](const wchar_t* what, const JobName& name) { names.push_back(what + name.Path()); };
    for (const auto& schedule : m_schedules) {
        if (&schedule->work.Module() == &module) {
            add(L"schedule ", *schedule->name);
        }
    }
    for (const FailedJob& failed : m_results.Failures()) {
        if (failed.error.IsOf(module)) {
            add(L"the failure of ", *failed.name);
        }
    }
    for (const GroupEntry* next = m_withHandle.Front(); next != nullptr; next = m_withHandle.Next(*next)) {
        if (&next->m_job->Module() == &module && next->m_job->HasResult()) {
            add(L"the result of ", *next->m_name);
        }
    }
}

}  // namespace Orvane::Internal
