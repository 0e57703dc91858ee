// libcrypto and SQLite set themselves up lazily: the first cipher
// and random bytes of a process load and instantiate the provider's
// algorithms and the random generators; the first database opened
// initialises SQLite's global tables; the first user or group lookup reads
// the name service's configuration; and the dynamic loader binds each
// library's calls at their first use. A process that forks many short
// commands does all that once itself, so that every command inherits it
// instead of paying for it again.
//
// Nothing secret or open is carried over: the cipher is set up with a zero
// key and dropped, the database is an in-memory one that is closed again,
// and libcrypto reseeds its random generators in each forked child, so no
// two commands share random bytes.
#pragma once

void warm_up_libraries_before_forks();
