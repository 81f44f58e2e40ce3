// What is told to others of the translations, and what is heard and taken over from them.

#include "Qon/include/framework/VerifyData.h"
#include "Qon/vlanmapping/VlanTranslations.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

using Entry = VlanTranslations::Entry;
using State = VlanTranslations::State;

bool
programmed( const Entry & e ) {
   return e.state == State::held || e.state == State::handedHeld;
}

bool
handed( const Entry & e ) {
   return e.state >= State::handedOver;
}

bool
isLag( IntfId intf ) {
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
}

String
nameOf( Bridging::VlanMappingDirection d, const PortVlanKey & key ) {
   return Kiv::toText( d ) + " " + key.portId().stringValue() + ", VLAN " +
          Kiv::toText( key.vlanId() ) +
          ( isNative( key.key() ) ? " native"
            : key.innerVlanId()   ? " inner " + Kiv::toText( key.innerVlanId() )
                                  : "" );
}

} // namespace

// --- Outputs -------------------------------------------------------------------------------------

void
VlanTranslations::publishPort( const Place & p, IntfId port ) {
   if ( graceful_ || handing_ ) {
      publishKeySet( port, p.key );
   }
   if ( port != p.intf && sm_->in_.qonVlanLagMemberStatusDir ) {
      publishMember( p.intf, port, p.direction, p.key );
   }
}

/** The key is in the set of every kind that a direction has handed over. */
void
VlanTranslations::publishKeySet( IntfId port, Key key ) {
   auto dir = sm_->in_.qonVlanMappingIntfConfigDir.ptr();
   if ( !dir ) {
      return;
   }
   bool cli = false, flow = false;
   for ( Direction d : Bridging::vlanMappingDirections ) {
      auto held = find( port, d, key );
      if ( held && handed( *held ) ) {
         ( held->heldFor == Source::Steerline ? flow : cli ) = true;
      }
   }
   if ( !cli && !flow && !dir->vlanMappingIntfConfigHas( port ) ) {
      return;
   }
   const Velto::Ptr< QonVlanMappingIntfConfig > sets = dir->vlanMappingIntfConfigIs( port );
   const bool native = cli && isNative( key );
   native ? sets->nativeVlanXlateKeySetIs( key ) : sets->nativeVlanXlateKeySetDel( key );
   cli && !native ? sets->vlanXlateKeySetIs( key ) : sets->vlanXlateKeySetDel( key );
   flow ? sets->dfVlanXlateKeySetIs( key ) : sets->dfVlanXlateKeySetDel( key );
   if ( sets->empty() ) {
      dir->vlanMappingIntfConfigDel( port );
   }
}

void
VlanTranslations::publishMember( IntfId lag, IntfId port, Direction d, const Key & key ) {
   auto & dir = sm_->in_.qonVlanLagMemberStatusDir;
   auto held = find( port, d, key );
   const bool there = held && programmed( *held );
   if ( !there && !dir->lagStatusHas( lag ) ) {
      return;
   }
   const Velto::Ptr< QonVlanLagStatus > ofLag = dir->lagStatusIs( lag );
   const Velto::Ptr< QonVlanLagMemberStatus > member = ofLag->memberStatusIs( port );
   member->keyIs( d, key, there );
   if ( member->empty() ) {
      ofLag->memberStatusDel( port );
   }
   if ( !ofLag->memberStatuss() ) {
      dir->lagStatusDel( lag );
   }
}

/** For a port that is a member no more: what of its keys could not be told one by one goes too. */
void
VlanTranslations::unpublishMember( IntfId lag, IntfId port ) {
   auto & dir = sm_->in_.qonVlanLagMemberStatusDir;
   const Velto::Ptr< QonVlanLagStatus > ofLag( dir ? dir->lagStatus( lag ) : nullptr );
   if ( ofLag ) {
      Velto::FirstError error;
      error.run( [&] { ofLag->memberStatusDel( port ); } );
      if ( !ofLag->memberStatuss() ) {
         error.run( [&] { dir->lagStatusDel( lag ); } );
      }
      error.pass();
   }
}

void
VlanTranslations::reviewOutputs() {
   Velto::FirstError error;
   error.run( [&] { reviewKeySets(); } );
   error.run( [&] { reviewMembers(); } );
   error.pass();
}

void
VlanTranslations::reviewKeySets() {
   std::vector< std::pair< IntfId, Key > > all;
   if ( auto & dir = sm_->in_.qonVlanMappingIntfConfigDir ) {
      for ( auto && [port, sets] : dir->vlanMappingIntfConfigIteratorConst() ) {
         for ( auto && [key, none] : sets->vlanXlateKeySetIteratorConst() ) {
            all.emplace_back( port, key );
         }
         for ( auto && [key, none] : sets->dfVlanXlateKeySetIteratorConst() ) {
            all.emplace_back( port, key );
         }
         for ( auto && [key, none] : sets->nativeVlanXlateKeySetIteratorConst() ) {
            all.emplace_back( port, key );
         }
      }
   }
   Velto::FirstError error;
   for ( auto & said : all ) {
      error.run( [&] { publishKeySet( said.first, said.second ); } );
   }
   error.pass();
}

void
VlanTranslations::reviewMembers() {
   struct Said {
      IntfId lag, port;
      Direction direction;
      Key key;
   };
   std::vector< Said > all;
   if ( auto & dir = sm_->in_.qonVlanLagMemberStatusDir ) {
      for ( auto && [lag, ofLag] : dir->lagStatusIteratorConst() ) {
         for ( auto && [port, member] : ofLag->memberStatusIteratorConst() ) {
            for ( auto && [key, none] : member->ingressKeyIteratorConst() ) {
               all.push_back( { lag, port, Direction::ingress, key } );
            }
            for ( auto && [key, none] : member->egressKeyIteratorConst() ) {
               all.push_back( { lag, port, Direction::egress, key } );
            }
         }
      }
   }
   Velto::FirstError error;
   for ( auto & said : all ) {
      error.run( [&] {
         rulerOf( said.port ) == said.lag
               ? publishMember( said.lag, said.port, said.direction, said.key )
               : unpublishMember( said.lag, said.port );
      } );
   }
   error.pass();
}

/** The VLAN that frames without a tag get, while some port of the interface has it. */
void
VlanTranslations::reviewEncap( IntfId intf ) {
   auto acsd = sm_->acsd();
   auto i = find( intf );
   const U16 vlan = i ? i->native[U8( Direction::egress )] : 0;
   bool there = false;
   if ( vlan ) {
      for ( IntfId port : targets( intf, *i, isLag( intf ) ) ) {
         auto held = find( port, Direction::egress, nativeKey( Bridging::VlanId( vlan ) ) );
         there |= held && ( programmed( *held ) || held->state == State::handedOver );
      }
   }
   there ? acsd->encapVlanIs( intf, Bridging::VlanId( vlan ) ) : acsd->encapVlanDel( intf );
}

// --- Start ---------------------------------------------------------------------------------------

void
VlanTranslations::restore() {
   for ( Direction d : Bridging::vlanMappingDirections ) {
      for ( auto && [key, config] : directory( d )->vlanMappingConfigIteratorConst() ) {
         restore( d, key, config );
      }
   }
}

void
VlanTranslations::restore( Direction d, const PortVlanKey & key,
                           const QonVlanMappingConfig & config ) {
   const IntfId port = key.portId();
   adoptRuler( port );
   const IntfId intf = rulerOf( port );
   version_ = std::max( version_, config.version() );
   Entry & held = entry( port, d, key.key() );
   if ( held.state == State::none ) {
      // Of another port-channel than now, it is handed over again, and is nobody's claim here.
      const bool same = config.lag() == ( intf == port ? IntfId() : intf );
      held.state = same ? State::handedOver : State::trying;
      held.held = config.mapping();
      held.heldFor = restoredOwner( key, config );
      held.version = config.version();
      const Source owner = held.heldFor;
      Entry & claim = entry( intf, d, key.key() );
      if ( same && claim.owner == Source::None ) {
         claim.owner = owner;
         claim.mapping = config.mapping();
      }
   }
   askKey( intf, d, key.key() );
}

/** A port that holds nothing yet has the ruler that it has: what the directory says is there was put
    there for that one. */
void
VlanTranslations::adoptRuler( IntfId port ) {
   const IntfId lag = LagView( sm_->acsd() ).lagOf( port );
   Interface & i = at( port );
   if ( !lag || i.ruler ) {
      return;
   }
   bool holds = false;
   for ( auto & entries : i.entries ) {
      for ( auto && [key, held] : entries ) {
         holds |= held.state != State::none;
      }
   }
   if ( !holds ) {
      i.ruler = lag;
      at( lag ).members.push_back( port );
   }
}

/** For whom a port's key was handed over, by the sets that it is in. It is in both when each direction
    has an owner of its own. */
QonVlanMappingSource
VlanTranslations::restoredOwner( const PortVlanKey & key,
                                 const QonVlanMappingConfig & config ) const {
   auto & dir = sm_->in_.qonVlanMappingIntfConfigDir;
   auto sets = dir ? dir->vlanMappingIntfConfig( key.portId() ) : nullptr;
   if ( !sets || !sets->dfVlanXlateKeySetHas( key.key() ) ) {
      return Source::BriselCli;
   }
   return sets->vlanXlateKeySetHas( key.key() ) ? config.source() : Source::Steerline;
}

void
VlanTranslations::reviewStatus( IntfId port, Direction d, Key key ) {
   auto statuses = ( d == Direction::ingress ? sm_->in_.qonIngVlanMappingStatusDir
                                             : sm_->in_.qonEgrVlanMappingStatusDir )
                         .ptr();
   const PortVlanKey portKey = PortVlanKey::of( port, key );
   auto known = find( port, d, key );
   if ( !statuses || !statuses->vlanMappingStatusHas( portKey ) || !known ||
        known->state == State::none ) {
      return;
   }
   const QonVlanMappingStatus status = statuses->vlanMappingStatus( portKey );
   if ( !status.answers( known->version ) ) {
      return;
   }
   const IntfId intf = rulerOf( port );
   askKey( intf, d, key );
   Entry & held = entry( port, d, key );
   const bool handed = held.state >= State::handedOver;
   if ( status.result() == Status::full || status.result() == Status::failed ) {
      const Place p = place( intf, d, key );
      if ( p.entry().owner != Source::None ) {
         giveUp( p, status.result() );
      }
   } else if ( handed && status.result() == Status::success ) {
      held.state = State::handedHeld;
   } else if ( handed && status.result() == Status::notNow ) {
      held.state = State::handedNotNow;
      sm_->doAddToUnprogrammedList( intf, key, d, held.heldFor );
   }
}

// --- Questions -----------------------------------------------------------------------------------

QonVlanMappingSource
VlanTranslations::sourceOf( Direction d, const PortVlanKey & key ) const {
   auto i = find( key.portId() );
   auto held = i ? i->entries[U8( d )].find( key.key() ) : nullptr;
   if ( !held ) {
      return Source::None;
   }
   return !i->ruler ? held->owner : held->state == State::none ? Source::None : held->heldFor;
}

VlanTranslations::Outcome
VlanTranslations::outcome( IntfId intf, Direction d, Key key, Source source ) const {
   auto i = find( intf );
   if ( !i || !wish( *i, d, key, source ) ) {
      return Outcome::unwanted;
   }
   auto claim = i->entries[U8( d )].find( key );
   if ( !claim || claim->owner != source ) {
      return i->givenUp.has( { key, d, source } )    ? Outcome::givenUp
             : claim && claim->owner != Source::None ? Outcome::conflict
                                                     : Outcome::waiting;
   }
   const auto ports = targets( intf, *i, isLag( intf ) );
   Outcome worst = ports.empty() ? Outcome::resting : Outcome::programmed;
   for ( IntfId port : ports ) {
      auto held = find( port, d, key );
      worst = std::min( worst, held && programmed( *held )                ? Outcome::programmed
                               : held && held->state == State::handedOver ? Outcome::handedOver
                                                                          : Outcome::waiting );
   }
   return worst;
}

void
VlanTranslations::verify() const {
   auto & data = sm_->in_.verifyData;
   for ( Direction d : Bridging::vlanMappingDirections ) {
      for ( auto && [port, i] : interfaces_ ) {
         for ( auto && [key, held] : i->entries[U8( d )] ) {
            const PortVlanKey portKey = PortVlanKey::of( port, key );
            auto owned = find( rulerOf( port ), d, key );
            if ( held.state != State::none && ( !owned || owned->owner != held.heldFor ) ) {
               QON_FINDING( data, nameOf( d, portKey ) + ", is held for " +
                                        shownSource( held.heldFor ) + ", which does not own it\n" );
            }
            if ( graceful_ && handed( held ) &&
                 !( directory( d )->vlanMappingConfig( portKey ).mapping() == held.held ) ) {
               QON_FINDING( data, nameOf( d, portKey ) +
                                        ", differs in the mapping configuration directory\n" );
            }
         }
      }
      if ( graceful_ ) {
         for ( auto && [key, config] : directory( d )->vlanMappingConfigIteratorConst() ) {
            if ( sourceOf( d, key ) == Source::None ) {
               QON_FINDING( data, nameOf( d, key ) + ", is in the mapping configuration directory "
                                                     "without an owner\n" );
            }
         }
      }
   }
}

/** What is wrong with an entry, to be said behind its name. */
String
VlanTranslations::checkEntry( IntfId intf, const Interface & i, Direction d, Key key,
                              const Entry & e ) const {
   const IntfId ruler = i.ruler ? i.ruler : intf;
   if ( e.state != State::none ) {
      auto owned = find( ruler, d, key );
      if ( !owned || owned->owner != e.heldFor || !( owned->mapping == e.held ) ) {
         return " holds what its owner does not want";
      }
   }
   if ( e.owner == Source::None ) {
      return "";
   }
   auto wanted = wish( i, d, key, e.owner );
   if ( !wanted || !( *wanted == e.mapping ) ) {
      return " is owned, and not wanted";
   }
   if ( i.givenUp.has( { key, d, e.owner } ) ) {
      return " is owned by a source that has given it up";
   }
   for ( IntfId port : targets( intf, i, isLag( intf ) ) ) {
      auto held = find( port, d, key );
      if ( ( !held || held->state == State::none ) &&
           !delayed_[U8( d )].has( PortVlanKey::of( intf, key ) ) ) {
         return " was never tried on " + port.stringValue();
      }
   }
   return "";
}

String
VlanTranslations::checkInterface( IntfId intf, const Interface & i ) const {
   for ( IntfId port : i.members ) {
      if ( rulerOf( port ) != intf ) {
         return port.stringValue() + " is a member, and not ruled by " + intf.stringValue();
      }
   }
   for ( Direction d : Bridging::vlanMappingDirections ) {
      for ( auto && [key, e] : i.entries[U8( d )] ) {
         if ( String wrong = checkEntry( intf, i, d, key, e ); !wrong.empty() ) {
            return nameOf( d, PortVlanKey::of( intf, key ) ) + wrong;
         }
      }
      for ( Source source : qonVlanMappingSources ) {
         auto config = i.input[U8( source )].ptr();
         if ( !config ) {
            continue;
         }
         for ( auto && [key, mapping] : config->vlanXlateIteratorConst( d ) ) {
            if ( wish( i, d, key, source ) && !i.givenUp.has( { key, d, source } ) &&
                 ( !i.entries[U8( d )].find( key ) ||
                   i.entries[U8( d )].find( key )->owner == Source::None ) ) {
               return nameOf( d, PortVlanKey::of( intf, key ) ) + " is wanted, and nobody's";
            }
         }
      }
   }
   return "";
}

String
VlanTranslations::checkInvariants() const {
   for ( auto && [intf, i] : interfaces_ ) {
      if ( String wrong = checkInterface( intf, *i ); !wrong.empty() ) {
         return wrong;
      }
   }
   return "";
}

} // namespace Qon
