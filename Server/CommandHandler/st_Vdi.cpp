#include "st_Vdi.h"

#include <algorithm>

#include "channel/rec_Vdi.h"

namespace st {

int64_t VdiCoordinator::NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

bool VdiCoordinator::Known(const std::string& uid) {
  db::Statement s = database_.Prepare("SELECT 1 FROM clients WHERE uid = ?");
  return s.Bind(1, uid).Step();
}

bool VdiCoordinator::ExpireStale(const std::string& pool, int64_t nowMs) {
  const int64_t before = nowMs - std::chrono::duration_cast<std::chrono::milliseconds>(limits_.taskTimeout).count();
  // A waiter asks again only after its retry interval: it has gone only
  // when it missed a few of those too, so a long interval never empties
  // the queue of desktops that do as they are told.
  const int64_t waiterBefore =
      nowMs - std::chrono::duration_cast<std::chrono::milliseconds>(std::max(limits_.taskTimeout, 3 * limits_.retryAfter))
                  .count();
  db::Statement dead = database_.Prepare(
      "UPDATE vdi_tasks SET state = 'dead', finished_ms = ? WHERE pool = ? AND state = 'running' "
      "AND last_report_ms < ?");
  db::Statement gone = database_.Prepare(
      "UPDATE vdi_tasks SET state = 'gone', finished_ms = ? WHERE pool = ? AND state = 'queued' "
      "AND last_report_ms < ?");
  return dead.Bind(1, nowMs).Bind(2, pool).Bind(3, before).Run() &&
         gone.Bind(1, nowMs).Bind(2, pool).Bind(3, waiterBefore).Run();
}

int64_t VdiCoordinator::FindTask(const VdiRequest& request, const char* state) {
  db::Statement s = database_.Prepare(
      "SELECT id FROM vdi_tasks WHERE uid = ? AND pool = ? AND task_id = ? AND state = ? ORDER BY id DESC LIMIT 1");
  return s.Bind(1, request.uid).Bind(2, request.pool).Bind(3, request.taskId).Bind(4, state).Step() ? s.Int(0) : 0;
}

// A desktop already running the task is told to start again (its answer was
// lost, say); one already queued keeps its place. The queue is first come,
// first served: a desktop starts when its place is within the free slots,
// so a newcomer never overtakes a desktop that has waited.
bool VdiCoordinator::Start(const VdiRequest& request, int64_t nowMs, VdiDecision* decision) {
  *decision = VdiDecision{};
  return db::InTransaction(database_, [&] {
    if (!Known(request.uid)) {
      decision->decision = tagCln_VdiAnswer::kUnknownClient;
      return true;
    }
    // The pool's slots are counted across every service sharing the
    // database: one decision at a time per pool.
    if (!database_.connection().LockForTransaction("vgcr vdi " + request.pool)) return false;
    if (!ExpireStale(request.pool, nowMs)) return false;
    if (const int64_t running = FindTask(request, "running")) {
      db::Statement touch = database_.Prepare("UPDATE vdi_tasks SET last_report_ms = ? WHERE id = ?");
      decision->decision = tagCln_VdiAnswer::kStart;
      return touch.Bind(1, nowMs).Bind(2, running).Run();
    }
    int64_t id = FindTask(request, "queued");
    if (id != 0) {
      db::Statement touch = database_.Prepare("UPDATE vdi_tasks SET last_report_ms = ? WHERE id = ?");
      if (!touch.Bind(1, nowMs).Bind(2, id).Run()) return false;
    } else {
      db::Statement insert = database_.Prepare(
          "INSERT INTO vdi_tasks (uid, pool, task_kind, task_id, state, asked_ms, last_report_ms) "
          "VALUES (?, ?, ?, ?, 'queued', ?, ?) RETURNING id");
      if (!insert.Bind(1, request.uid).Bind(2, request.pool).Bind(3, request.taskKind).Bind(4, request.taskId)
               .Bind(5, nowMs).Bind(6, nowMs).Step()) {
        return false;
      }
      id = insert.Int(0);
    }
    db::Statement counts = database_.Prepare(
        "SELECT (SELECT COUNT(*) FROM vdi_tasks WHERE pool = ?1 AND state = 'running'), "
        "(SELECT COUNT(*) FROM vdi_tasks WHERE pool = ?1 AND state = 'queued' AND id < ?2)");
    if (!counts.Bind(1, request.pool).Bind(2, id).Step()) return false;
    const int64_t running = counts.Int(0);
    const int64_t ahead = counts.Int(1);
    if (running + ahead < limits_.slotsPerPool) {
      db::Statement start = database_.Prepare(
          "UPDATE vdi_tasks SET state = 'running', started_ms = ?, last_report_ms = ? WHERE id = ?");
      decision->decision = tagCln_VdiAnswer::kStart;
      return start.Bind(1, nowMs).Bind(2, nowMs).Bind(3, id).Run();
    }
    decision->decision = tagCln_VdiAnswer::kWait;
    decision->retryAfter = static_cast<uint32_t>(limits_.retryAfter.count());
    decision->position = static_cast<uint32_t>(ahead + 1);
    return true;
  });
}

bool VdiCoordinator::Report(const VdiRequest& request, int64_t nowMs, bool complete, VdiDecision* decision) {
  *decision = VdiDecision{};
  return db::InTransaction(database_, [&] {
    if (!Known(request.uid)) {
      decision->decision = tagCln_VdiAnswer::kUnknownClient;
      return true;
    }
    if (!database_.connection().LockForTransaction("vgcr vdi " + request.pool)) return false;
    if (!ExpireStale(request.pool, nowMs)) return false;
    const int64_t id = FindTask(request, "running");
    if (id == 0) {
      // A complete notification repeated because its answer was lost finds
      // its task done: noted again, not unknown.
      const bool repeated = complete && FindTask(request, "done") != 0;
      decision->decision = repeated ? tagCln_VdiAnswer::kNoted : tagCln_VdiAnswer::kUnknownTask;
      return true;
    }
    db::Statement update = database_.Prepare(
        complete ? "UPDATE vdi_tasks SET state = 'done', last_report_ms = ?1, finished_ms = ?1, result = ?2, "
                   "progress = 100 WHERE id = ?3"
                 : "UPDATE vdi_tasks SET last_report_ms = ?1, progress = ?2 WHERE id = ?3");
    decision->decision = tagCln_VdiAnswer::kNoted;
    return update.Bind(1, nowMs).Bind(2, complete ? request.result : request.progress).Bind(3, id).Run();
  });
}

bool VdiCoordinator::Running(const VdiRequest& request, int64_t nowMs, VdiDecision* decision) {
  return Report(request, nowMs, false, decision);
}

bool VdiCoordinator::Complete(const VdiRequest& request, int64_t nowMs, VdiDecision* decision) {
  return Report(request, nowMs, true, decision);
}

}  // namespace st
