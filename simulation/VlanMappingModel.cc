#include "simulation/VlanMappingModel.h"

namespace Sim {

String
VlanMappingModel::Key::text() const {
   return intf.stringValue() + " " + Kiv::toText( direction ) + " " + Kiv::toText( vlan ) +
          ( native ? " native" : "" );
}

namespace {

/** As messages name the sources. */
constexpr const char * sourceNames[] = { "CLI", "Steerline", "native VLAN" };

} // namespace

U32
VlanMappingModel::sourceOf( const String & name ) const {
   for ( U32 source = 0; source < sources; ++source ) {
      if ( name == sourceNames[source] ) {
         return source;
      }
   }
   return nobody;
}

Ulnet::IntfId
VlanMappingModel::rulerOf( IntfId port ) const {
   auto lag = lagOf_.find( port );
   return lag == lagOf_.end() ? port : lag->second;
}

/** Whether the interface leads to any port. */
bool
VlanMappingModel::leads( IntfId intf ) const {
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      return !lagOf_.count( intf );
   }
   for ( auto & [port, lag] : lagOf_ ) {
      if ( lag == intf ) {
         return true;
      }
   }
   return false;
}

bool
VlanMappingModel::active( IntfId intf, U32 source ) const {
   if ( !second_ ) {
      return true;
   }
   auto mode = modes_.find( intf );
   return mode != modes_.end() && mode->second == ( source == 1 ? Mode::flow : Mode::trunk );
}

bool
VlanMappingModel::may( const Key & key, const Claim & claim, U32 source ) const {
   return claim.wishes[source] && active( key.intf, source ) &&
          claim.givenUp[source] != claim.wishes[source];
}

void
VlanMappingModel::settle( const Key & key, Claim & claim, U32 former, bool lost, bool silent ) {
   for ( U32 source = 0; source < sources; ++source ) {
      if ( claim.givenUp[source] != claim.wishes[source] ) {
         claim.givenUp[source]
               .reset(); // another wish was seen: should the old one come back, it is tried
      }
   }
   if ( claim.owner != nobody && !may( key, claim, claim.owner ) ) {
      lost = second_ ? !claim.wishes[claim.owner] : true;
      former = claim.owner;
      claim.owner = nobody;
   }
   if ( claim.owner == nobody ) {
      claim.pending = false;
      for ( U32 turn = 0; turn < 2 * sources && claim.owner == nobody; ++turn ) {
         const U32 source = turn % sources;
         if ( may( key, claim, source ) && ( turn >= sources || source != former ) ) {
            claim.owner = source;
            claim.pending = lost && !silent;
         }
      }
   }
   for ( U32 source = 0; source < sources; ++source ) {
      if ( !may( key, claim, source ) || claim.owner == source ) {
         claim.told[source].reset();
      }
   }
}

void
VlanMappingModel::settleAll( bool silent ) {
   for ( auto & [key, claim] : claims_ ) {
      settle( key, claim, nobody, false, silent );
   }
}

void
VlanMappingModel::wishIs( const Key & key, U32 source, std::optional< Mapping > wish ) {
   Claim & claim = claims_[key];
   if ( claim.wishes[source] == wish ) {
      return;
   }
   claim.wishes[source] = wish;
   if ( !paused_ ) {
      claim.givenUp[source].reset();
      claim.told[source].reset();
      settle( key, claim, nobody, false, false );
   }
}

void
VlanMappingModel::wishesDel( IntfId intf, U32 source ) {
   for ( auto & [key, claim] : claims_ ) {
      if ( key.intf == intf ) {
         wishIs( key, source, {} );
         if ( !paused_ || !second_ ) { // else it may be back before anybody looks
            claim.givenUp[source].reset();
            claim.told[source].reset();
         }
      }
   }
}

void
VlanMappingModel::modeIs( IntfId intf, std::optional< Mode > mode ) {
   mode ? void( modes_[intf] = *mode ) : void( modes_.erase( intf ) );
   for ( auto & [key, claim] : claims_ ) {
      if ( key.intf == intf && !paused_ && second_ ) {
         settle( key, claim, nobody, false, true );
      }
   }
}

void
VlanMappingModel::lagIs( IntfId port, IntfId lag ) {
   const IntfId before = lagOf_.count( port ) ? lagOf_[port] : IntfId();
   if ( before == lag ) {
      return;
   }
   lag ? void( lagOf_[port] = lag ) : void( lagOf_.erase( port ) );
   if ( !paused_ ) {
      membersChanged( before );
      membersChanged( lag );
   }
}

/** What was refused may be had now. */
void
VlanMappingModel::membersChanged( IntfId lag ) {
   for ( auto & [key, claim] : claims_ ) {
      if ( key.intf == lag ) {
         for ( auto & givenUp : claim.givenUp ) {
            givenUp.reset();
         }
         if ( !paused_ ) {
            settle( key, claim, nobody, false, false );
         }
      }
   }
}

void
VlanMappingModel::pausedIs( bool paused ) {
   if ( paused ) {
      paused_ = true;
      lagOfBefore_ = lagOf_;
      return;
   }
   // Only what differs in the end is noticed.
   for ( auto * some : { &lagOfBefore_, &lagOf_ } ) {
      for ( auto & [port, lag] : *some ) {
         const auto & others = some == &lagOf_ ? lagOfBefore_ : lagOf_;
         auto other = others.find( port );
         if ( other == others.end() || other->second != lag ) {
            membersChanged( lag );
         }
      }
   }
   paused_ = false;
   settleAll( true );
}

void
VlanMappingModel::asked( const Key & key, IntfId port ) {
   claims_[key].refused.erase( port );
}

void
VlanMappingModel::refused( const Key & key, IntfId port, Mapping mapping ) {
   claims_[key].refused[port] = { claims_[key].owner, mapping };
}

/** From a port that is the interface's no more it is taken for that reason. */
void
VlanMappingModel::removed( const Key & key, IntfId port ) {
   Claim & claim = claims_[key];
   auto refusal = claim.refused.extract( port );
   if ( refusal && rulerOf( port ) == key.intf && claim.owner != nobody &&
        refusal.mapped() == std::pair( claim.owner, *claim.wishes[claim.owner] ) ) {
      const U32 former = claim.owner;
      claim.givenUp[former] = claim.wishes[former];
      claim.owner = nobody;
      settle( key, claim, former, true, starting_ );
   }
}

String
VlanMappingModel::conflictHeard( const Key & key, const String & requester, const String & owner ) {
   Claim & claim = claims_[key];
   const U32 source = sourceOf( requester );
   if ( source == nobody || claim.owner != sourceOf( owner ) || source == claim.owner ||
        !may( key, claim, source ) ) {
      return "conflict that is none: " + key.text() + ", " + requester + " against " + owner;
   }
   const std::pair now( claim.owner, *claim.wishes[source] );
   if ( claim.told[source] == now ) {
      return "conflict told twice: " + key.text() + ", " + requester;
   }
   claim.told[source] = now;
   return {};
}

String
VlanMappingModel::programmedHeard( const Key & key, const String & winner ) {
   Claim & claim = claims_[key];
   if ( !claim.pending || claim.owner != sourceOf( winner ) ) {
      return "programmed without a reason: " + key.text() + ", " + winner;
   }
   claim.pending = false;
   return {};
}

String
VlanMappingModel::unsaid() const {
   for ( auto & [key, claim] : claims_ ) {
      if ( claim.pending && ( second_ || leads( key.intf ) ) ) {
         return "winner not announced: " + key.text();
      }
      for ( U32 source = 0; source < sources; ++source ) {
         if ( claim.owner != nobody && source != claim.owner && may( key, claim, source ) &&
              claim.told[source] != std::pair( claim.owner, *claim.wishes[source] ) ) {
            return "conflict not told: " + key.text() + ", " + sourceNames[source];
         }
      }
   }
   return {};
}

std::map< VlanMappingModel::Key, std::pair< U32, VlanMappingModel::Mapping > >
VlanMappingModel::owners() const {
   std::map< Key, std::pair< U32, Mapping > > all;
   for ( auto & [key, claim] : claims_ ) {
      if ( claim.owner != nobody ) {
         all[key] = { claim.owner, *claim.wishes[claim.owner] };
      }
   }
   return all;
}

std::map< VlanMappingModel::Port, VlanMappingModel::Mapping >
VlanMappingModel::ports() const {
   std::map< Port, Mapping > all;
   for ( auto & [key, owner] : owners() ) {
      const bool native = key.native || owner.first == 2;
      if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( key.intf ) ) {
         if ( !lagOf_.count( key.intf ) ) {
            all[{ key.direction, key.intf, key.vlan, native }] = owner.second;
         }
         continue;
      }
      for ( auto & [port, lag] : lagOf_ ) {
         if ( lag == key.intf ) {
            all[{ key.direction, port, key.vlan, native }] = owner.second;
         }
      }
   }
   return all;
}

} // namespace Sim
