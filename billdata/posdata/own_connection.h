#pragma once
// A connection that a PosData operation opens for itself from the session string.

#include <memory>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"

namespace billdata::posdata_detail {

// Opened on construction, closed on every exit; closing rolls back a transaction still open,
// so a save that failed half-way never leaves anything behind.
struct OwnConnection {
    std::shared_ptr<ado::Connection> cn;
    OwnConnection() : cn(ado::Connection::create()) { cn->Open(common::GetPromptString()); }
    ~OwnConnection() { cn->Close(); }
    OwnConnection(const OwnConnection&) = delete;
    OwnConnection& operator=(const OwnConnection&) = delete;
};

}  // namespace billdata::posdata_detail
