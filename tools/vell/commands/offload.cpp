#include "commands/offload.h"

#include <cerrno>

#include "offload/offload_plan.h"
#include "ui/interrupt.h"
#include "ui/offload_report.h"
#include "ui/problem_text.h"
#include "ui/screen.h"

namespace tool {
namespace {

OffloadPlan plan_or_fail(const OffloadOptions& options) {
    OffloadPlan plan;
    try {
        plan_offload(options, interrupt_flag(), plan);
    } catch (const JobRefused& refused) {
        throw failure_of(refused);
    }
    return plan;
}

int exit_code_of(const OffloadResult& result, const OffloadPlan& plan) {
    bool is_incomplete = result.has_failure, has_mismatch = false, lacks_space = false;
    for (size_t i = 0; i < plan.destinations.size(); ++i) {
        const DestinationCounts& counts = result.destinations[i];
        is_incomplete |= counts.of(Outcome::failed) > 0 || plan.destinations[i]->is_dropped();
        has_mismatch |= counts.mismatches > 0;
        const int error = plan.destinations[i]->drop_reason().error;
        lacks_space |= error == ENOSPC || error == EDQUOT;
    }
    if (has_mismatch) return k_exit_mismatch;
    if (result.is_cancelled) return k_exit_interrupted;
    if (lacks_space) return k_exit_no_space;
    return is_incomplete ? k_exit_incomplete : k_exit_done;
}

}  // namespace

int offload(const OffloadCommand& command) {
    catch_interrupts();
    OffloadPlan plan = plan_or_fail(command.options);
    OffloadReport report(command, plan);
    report.start();
    const OffloadResult result = run_offload(command.options, interrupt_flag(), plan, report);
    const int exit_code = exit_code_of(result, plan);
    report.finish(result, exit_code);
    return exit_code == k_exit_done && !has_printed_all() ? k_exit_incomplete : exit_code;
}

}  // namespace tool
