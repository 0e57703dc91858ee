// sorvane-auth: the mail server's login check against sorvane's
// authentication store (the checkpassword interface).
#include "auth/checkpassword_run.h"

int main(int argc, char** argv) { return crelm::auth::run_checkpassword(argc, argv); }
