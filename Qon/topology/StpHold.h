#pragma once
// What a handler of the topologies keeps on its stack while it calls hooks and watchers, either of
// which may take away what the handler belongs to, or raise.

#include "Qon/include/topology/QonStpSm.h"

namespace Qon {

/** Keeps them alive until the handler returns; what need not be kept is null. */
struct StpHold {
   Velto::Ptr< StpSm > stpSm;
   Velto::Ptr< TopoSm > topoSm;
   Velto::Ptr< TopoPortSm > port;
};

/** Sets a flag for as long as a scope lasts. */
class ScopeFlag {
 public:
   explicit ScopeFlag( bool & flag ) : flag_( flag ) { flag_ = true; }
   ~ScopeFlag() { flag_ = false; }
   ScopeFlag( const ScopeFlag & ) = delete;
   ScopeFlag & operator=( const ScopeFlag & ) = delete;

 private:
   bool & flag_;
};

} // namespace Qon
