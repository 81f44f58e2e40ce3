#pragma once
// The mirror sessions of the chip in software: so many sessions, and filters for so many sources.
//
//    hook object -> sessions, sources: at once
//                -> filters: looked at later -> Hook::filterDone()
//
// Invariants
// 1. There are not more sessions than the table has room for (in the fault plan the limit of
//    "mirrorSessions"), and not two in one group.
// 2. A source whose filter has no room ("mirrorFilters") mirrors nothing. It waits to be removed.
// 3. A source is one of a session that is there.

#include <map>
#include <optional>
#include <vector>

#include "agent/softchip/AclMatch.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "platform/types/Mirroring.h"
#include "platform/types/Tunnel.h"

namespace SoftChip {

using Ulnet::IntfId;
using Velto::String;

struct MirrorLimits {
   U32 sessions = 4;
   U8 biDirSources = 8; ///< of a session
   U8 uniDirSources = 16;
   U32 filters = 32;
};

/** What of a source is mirrored: whatever the first rule that it matches permits. */
struct MirrorFilter {
   Acl::AclType type = Acl::AclType::ip;
   std::vector< Acl::Rule > rules; ///< in the order in which they are asked
   bool takes( const AclPacket & packet ) const;
};

class MirrorTable {
 public:
   using Direction = Mirroring::Direction;

   /** A source, and how far its filter is. */
   struct Source {
      Direction direction = Direction::none;
      enum class Filter : U8 { none, onItsWay, applied, full } filter = Filter::none;
      U64 serial = 0; // of its adding
      std::optional< MirrorFilter > rules = {};
      bool mirrors() const { return filter == Filter::none || filter == Filter::applied; }
      bool mirrors( const AclPacket & packet ) const {
         return mirrors() && ( !rules || rules->takes( packet ) );
      }
   };
   struct Session {
      S32 group = Mirroring::mirrorGroupInvalid();
      Mirroring::TunnelInfo tunnel;
      Tunnel::Resolution resolution;
      Mirroring::SessionAttributes attributes;
      std::map< IntfId, Kiv::Nothing > targets;
      std::map< IntfId, Source > sources;
   };
   using Sessions = std::map< String, Session >;

   class Hook {
    public:
      /** Whether the source's filter is applied now. */
      virtual void filterDone( const String & name, IntfId port, bool applied ) = 0;
      virtual void reconciled() = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   MirrorTable( const MirrorLimits & limits, FaultPlan & plan ) : limits_( limits ), plan_( plan ) {
      for ( auto hook :
            { "createMirror", "createMirrorTunnel", "addMirrorSource", "mirrorFilter" } ) {
         plan.hookIs( hook );
      }
      plan.tableIs( "mirrorSessions" );
      plan.tableIs( "mirrorFilters" );
   }

   Hearer< Hook > hook;
   /** When filters are looked at. */
   Completions & completions() { return completions_; }

   const MirrorLimits & limits() const { return limits_; }
   void limitsAre( const MirrorLimits & limits ) { limits_ = limits; }
   U32 sessionsAtMost() const { return plan_.limit( "mirrorSessions", limits_.sessions ); }
   const Sessions & sessions() const { return sessions_; }

   // False: refused.
   bool targetIs( const String & name, S32 group, IntfId port,
                  const Mirroring::SessionAttributes & attributes );
   void targetDel( const String & name, IntfId port );
   bool tunnelIs( const String & name, S32 group, const Mirroring::TunnelInfo & tunnel,
                  const Tunnel::Resolution & resolution,
                  const Mirroring::SessionAttributes & attributes );
   void tunnelDel( const String & name );
   bool sourceIs( const String & name, IntfId port, Direction direction,
                  std::optional< MirrorFilter > filter );
   void sourceDel( const String & name, IntfId port );

 private:
   Session * room( const String & name, S32 group );
   void goneIfEmpty( const String & name );
   void lookAtFilter( const String & name, IntfId port, U64 serial );
   U32 filtersApplied() const;

   MirrorLimits limits_;
   FaultPlan & plan_;
   U64 serial_ = 0;
   Sessions sessions_;
   Completions completions_;
};

} // namespace SoftChip
