#include "qmail/rebuild_deferral.h"

namespace crelm::qmail {
namespace {

RebuildDeferral& installed() {
    static RebuildDeferral deferral = nullptr;
    return deferral;
}

}  // namespace

void set_rebuild_deferral(RebuildDeferral deferral) {
    installed() = deferral;
}

RebuildDeferral rebuild_deferral() {
    return installed();
}

}  // namespace crelm::qmail
