// The process state the program relies on, whatever its caller left behind.
#pragma once

// Called first thing in main, before anything is created or run:
// - umask 022, so that no file or directory the program (or a child) makes is
//   group- or world-writable, even when the caller's umask is 000;
// - SIGCHLD back to its default action and unblocked, since an inherited
//   SIG_IGN makes the kernel reap children itself and every wait for them
//   fail, and children would inherit the block;
// - the password variables taken out of the environment (their values kept
//   for the commands that read a password), so that no child sees them.
void settle_process_state();
