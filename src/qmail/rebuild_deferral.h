// Deferring the rebuild of qmail's compiled user assignment table and the
// reload of qmail-send to one run after a whole batch of commands.
//
// A batch runs each of its commands in a process of its own; that process
// installs a deferral before the command starts. qmail_newu and
// reload_qmail_send then only hand their request to the deferral and answer
// 0: the batch runs each of them once, after its last command, and gives
// every command that asked for it that shared run's result (its messages
// where the command asked, and status 1 for a command that would otherwise
// have succeeded). The batch lives above this layer, so it passes the
// deferral in.
#pragma once

namespace crelm::qmail {

enum class RebuildKind : unsigned char {
    newu = 1,    // qmail-newu, the compiled user assignment table
    reload = 2,  // the reload of qmail-send (or its restart when that fails)
};

using RebuildDeferral = void (*)(RebuildKind kind);

// Installs deferral for the rest of the process (nullptr: runs happen
// where they are asked for, as in a single command).
void set_rebuild_deferral(RebuildDeferral deferral);
RebuildDeferral rebuild_deferral();

}  // namespace crelm::qmail
