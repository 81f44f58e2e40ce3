#include "Qon/vlanmapping/VlanTranslations.h"

#include "platform/Flintlog/Trace.h"

namespace Qon {

using Ulnet::IntfId;

bool
VlanTranslations::Interface::empty() const {
   return !input[0] && !input[1] && !ruler && members.empty() && entries[0].empty() &&
          entries[1].empty();
}

// --- The tables ----------------------------------------------------------------------------------

VlanTranslations::Interface &
VlanTranslations::at( IntfId intf ) {
   if ( !find( intf ) ) {
      recent_ = ( *interfaces_.emplace( intf ).first = std::make_unique< Interface >() ).get();
   }
   return *recent_;
}

const VlanTranslations::Interface *
VlanTranslations::find( IntfId intf ) const {
   if ( !recent_ || recentIntf_ != intf ) {
      auto held = interfaces_.find( intf );
      recentIntf_ = intf;
      recent_ = held ? held->get() : nullptr;
   }
   return recent_;
}

const VlanTranslations::Entry *
VlanTranslations::find( IntfId intf, Direction d, Key key ) const {
   auto i = find( intf );
   return i ? i->entries[U8( d )].find( key ) : nullptr;
}

VlanTranslations::Entry &
VlanTranslations::entry( IntfId intf, Direction d, Key key ) {
   return at( intf ).entries[U8( d )].at( key );
}

void
VlanTranslations::dropIfEmpty( IntfId intf ) {
   auto i = find( intf );
   if ( i && i->empty() ) {
      recent_ = nullptr;
      interfaces_.erase( intf );
   }
}

bool
VlanTranslations::isLag( IntfId intf ) const {
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
}

std::span< const IntfId >
VlanTranslations::targets( const IntfId & intf, const Interface & i, bool inLag ) const {
   if ( i.ruler ) {
      return {};
   }
   return inLag ? std::span< const IntfId >( i.members ) : std::span( &intf, 1 );
}

IntfId
VlanTranslations::rulerOf( IntfId port ) const {
   auto i = find( port );
   return i && i->ruler ? i->ruler : port;
}

std::vector< IntfId >
VlanTranslations::interfaces() const {
   std::vector< IntfId > all;
   for ( auto && [intf, i] : interfaces_ ) {
      all.push_back( intf );
   }
   return all;
}

QonVlanMappingConfigDir *
VlanTranslations::directory( Direction d ) const {
   return ( d == Direction::ingress ? sm_->in_.qonIngVlanMappingConfigDir
                                    : sm_->in_.qonEgrVlanMappingConfigDir )
         .ptr();
}

namespace {

bool
inRange( Bridging::VlanXlateKey key, Bridging::VlanXlateMapping mapping ) {
   auto plain = []( U16 vlan ) { return vlan >= 1 && vlan <= 4094; };
   return plain( key.vlanId() ) && plain( mapping.vlanId() ) &&
          ( !key.innerVlanId() || isNative( key ) || plain( key.innerVlanId() ) ) &&
          ( !mapping.innerVlanId() || plain( mapping.innerVlanId() ) );
}

} // namespace

/** What the source wants under the key, if that can be. */
std::optional< VlanTranslations::Mapping >
VlanTranslations::wish( const Interface & i, Direction d, Key key, Source source ) const {
   auto config = i.input[U8( source )].ptr();
   if ( !config ) {
      return {};
   }
   if ( isNative( key ) ) {
      if ( source != Source::BriselCli ) {
         return {};
      }
      const auto vlan =
            static_cast< const Bridging::SwitchIntfConfig * >( config )->nativeVlan( d );
      return !vlan.isNone() && vlan.value() == key.vlanId()
                   ? std::optional( Mapping( vlan.value(), 0 ) )
                   : std::nullopt;
   }
   const Mapping mapping = config->vlanXlate( d, key );
   return inRange( key, mapping ) ? std::optional( mapping ) : std::nullopt;
}

// --- What is asked -------------------------------------------------------------------------------

void
VlanTranslations::inputIs( IntfId intf, Source source, Velto::Ptr< const Config > config ) {
   Interface & i = at( intf );
   i.input[U8( source )] = config;
   if ( !config ) {
      askAll( intf, source, false );
   }
}

void
VlanTranslations::askKey( IntfId intf, Direction d, Key key, Source apply ) {
   ask( { What::key, d, apply, intf, key } );
}

void
VlanTranslations::askNative( IntfId intf, Direction d ) {
   Interface & i = at( intf );
   auto config = static_cast< const Bridging::SwitchIntfConfig * >( i.input[0].ptr() );
   const U16 now = config ? config->nativeVlan( d ).value() : 0;
   const U16 before = std::exchange( i.native[U8( d )], now );
   if ( before && before != now ) {
      forgetOld( intf, d, { before, nativeInnerVlan }, Source::BriselCli );
      askKey( intf, d, { before, nativeInnerVlan } );
   }
   if ( now ) {
      askKey( intf, d, { now, nativeInnerVlan } );
   }
}

void
VlanTranslations::askAll( IntfId intf, Source source, bool apply ) {
   Interface & i = at( intf );
   const Source again = apply ? source : Source::None;
   forgetOld( intf, source );
   for ( Direction d : Bridging::vlanMappingDirections ) {
      if ( source == Source::BriselCli ) {
         askNative( intf, d );
         if ( U16 vlan = i.native[U8( d )]; vlan && apply ) {
            askKey( intf, d, { vlan, nativeInnerVlan }, again );
         }
      }
      auto config = i.input[U8( source )];
      if ( config ) {
         for ( auto && [key, mapping] : config->vlanXlateIteratorConst( d ) ) {
            askKey( intf, d, key, again );
         }
      }
      for ( auto && [key, held] : i.entries[U8( d )] ) {
         if ( !config || ( !apply && !config->vlanXlateHas( d, key ) ) ) {
            askKey( intf, d, key );
         }
      }
   }
   askEncap( intf );
}

bool
VlanTranslations::forgetOld( IntfId intf, Direction d, Key key, Source source ) {
   Interface & i = at( intf );
   if ( i.givenUp.empty() && i.reported.empty() ) {
      return false;
   }
   const Claim claim = { key, d, source };
   const auto wanted = wish( i, d, key, source );
   bool any = false;
   for ( auto * claims : { &i.givenUp, &i.reported } ) {
      auto old = claims->find( claim );
      if ( old && ( !wanted || !( *old == *wanted ) ) ) {
         claims->erase( claim );
         any = true;
      }
   }
   return any;
}

/** The same for all keys: what went while nobody was listening is held by no entry. */
void
VlanTranslations::forgetOld( IntfId intf, Source source ) {
   for ( auto claims : { &Interface::givenUp, &Interface::reported } ) {
      for ( auto walk = ( at( intf ).*claims ).begin(); walk != nullptr; ++walk ) {
         const Claim claim = walk.key();
         if ( claim.source == source && forgetOld( intf, claim.direction, claim.key, source ) ) {
            askKey( intf, claim.direction, claim.key );
         }
      }
   }
}

void
VlanTranslations::handleCodef( Direction d ) {
   const KeySet< PortVlanKey > waiting = std::move( delayed_[U8( d )] );
   for ( auto && entry : waiting ) {
      askKey( entry.key.portId(), d, entry.key.key() );
   }
   const Velto::Hold alive( sm_ );
   paced_ = true;
   const Velto::AtEnd done( [this] { paced_ = false; } );
   settle();
}

void
VlanTranslations::settle() {
   if ( !holdUp_ ) {
      work_.drain( sm_, [this]( const Question & question ) { answer( question ); } );
   }
}

void
VlanTranslations::answer( const Question & q ) {
   const IntfId intf = q.intf;
   switch ( q.what ) {
   case What::key:
      reviewKey( intf, q.direction, q.key, q.apply );
      sm_->tell( intf, q.direction, q.key );
      break;
   case What::port:
      reviewPort( intf );
      break;
   case What::status:
      reviewStatus( intf, q.direction, q.key );
      break;
   case What::encap:
      reviewEncap( intf );
      break;
   case What::sweep:
      sweep( intf, q.direction, q.key );
      break;
   }
   dropIfEmpty( intf );
}

// --- The owner of a key --------------------------------------------------------------------------

void
VlanTranslations::reviewKey( IntfId intf, Direction d, Key key, Source apply ) {
   Interface & i = at( intf );
   for ( Source source : qonVlanMappingSources ) {
      forgetOld( intf, d, key, source );
   }
   if ( !find( intf, d, key ) && !wish( i, d, key, Source::BriselCli ) &&
        !wish( i, d, key, Source::Steerline ) ) {
      return;
   }
   settleOwner( intf, d, key, apply );
   const Source owner = entry( intf, d, key ).owner;
   if ( owner == Source::None && !i.ruler ) {
      withdraw( intf, d, key ); // what an exception left behind
   } else if ( i.input[0] && i.input[1] ) {
      reportConflicts( intf, d, key );
   }
   conclude( intf, d, key );
}

/** Tells everybody what is so now. */
void
VlanTranslations::conclude( IntfId intf, Direction d, Key key ) {
   Interface & i = at( intf );
   for ( IntfId port : targets( intf, i, isLag( intf ) ) ) {
      publishPort( intf, port, d, key );
   }
   announce( intf, d, key );
   if ( isNative( key ) && d == Direction::egress ) {
      reviewEncap( intf );
   }
   if ( entry( intf, d, key ).empty() ) {
      i.entries[U8( d )].erase( key );
   }
}

/** Until somebody owns the key and has it on all ports, or nobody wants it who could have it. */
void
VlanTranslations::settleOwner( IntfId intf, Direction d, Key key, Source apply ) {
   Interface & i = at( intf );
   Source former = Source::None;
   for ( ;; ) {
      Entry & e = entry( intf, d, key );
      if ( e.owner == Source::None ) {
         const Source next = nextOwner( intf, d, key, former );
         if ( next == Source::None ) {
            return;
         }
         claim( d, intf, key, *wish( i, d, key, next ), isLag( intf ), next );
         if ( entry( intf, d, key ).owner != Source::None ) {
            return;
         }
         former = next;
         continue;
      }
      const Source owner = e.owner;
      const auto wanted = wish( i, d, key, owner );
      if ( !wanted ) {
         withdraw( intf, d, key );
         former = owner;
         continue;
      }
      e.mapping = *wanted;
      const Status status =
            program( intf, d, key, isLag( intf ), apply == owner ? apply : Source::None );
      if ( status != Status::full && status != Status::failed ) {
         return;
      }
      giveUp( intf, d, key, status );
      former = owner;
   }
}

/** Who claims a key that is free: in order, but whoever has just lost it last. */
QonVlanMappingSource
VlanTranslations::nextOwner( IntfId intf, Direction d, Key key, Source former ) const {
   const Interface & i = *find( intf );
   auto may = [&]( Source source ) {
      return wish( i, d, key, source ) && !i.givenUp.has( { key, d, source } );
   };
   for ( Source source : qonVlanMappingSources ) {
      if ( source != former && may( source ) ) {
         return source;
      }
   }
   return former != Source::None && may( former ) ? former : Source::None;
}

void
VlanTranslations::reportConflicts( IntfId intf, Direction d, Key key ) {
   Interface & i = at( intf );
   const Source owner = entry( intf, d, key ).owner;
   for ( Source source : qonVlanMappingSources ) {
      const Claim claim = { key, d, source };
      const auto wanted = source == owner ? std::nullopt : wish( i, d, key, source );
      if ( owner != Source::None && wanted && !i.givenUp.has( claim ) ) {
         reportConflict( intf, d, key, source, *wanted );
      }
   }
}

/** Once for what is wanted; with another owner all of it is forgotten. */
void
VlanTranslations::reportConflict( IntfId intf, Direction d, Key key, Source source,
                                  Mapping wanted ) {
   auto [known, fresh] = at( intf ).reported.emplace( { key, d, source }, wanted );
   if ( fresh || !( *known == wanted ) ) {
      *known = wanted;
      vlanMappingLog.conflict( subject( intf, d, key, wanted ), shownSource( source ),
                               shownSource( entry( intf, d, key ).owner ) );
   }
}

VlanTranslations::Status
VlanTranslations::add( Direction d, IntfId intf, Key key, Mapping mapping, bool inLag,
                       Source source ) {
   if ( !inRange( key, mapping ) ) {
      isNative( key ) ? void( Bridging::VlanId( key.vlanId() ) ) : Bridging::checkVlanXlate( key );
      Bridging::checkVlanXlate( mapping );
   }
   const Velto::Hold alive( sm_ );
   const Source owner = entry( intf, d, key ).owner;
   Status status = Status::failed;
   if ( owner != Source::None && owner != source ) {
      reportConflict( intf, d, key, source, mapping );
   } else {
      entry( intf, d, key ).announce = false;
      status = claim( d, intf, key, mapping, inLag, source );
   }
   conclude( intf, d, key );
   sm_->tell( intf, d, key );
   return status;
}

void
VlanTranslations::del( Direction d, IntfId intf, Key key, Source source ) {
   auto e = find( intf, d, key );
   if ( e && e->owner == source ) {
      const Velto::Hold alive( sm_ );
      withdraw( intf, d, key );
      if ( isNative( key ) && d == Direction::egress ) {
         reviewEncap( intf );
      }
      sm_->tell( intf, d, key );
   }
}

/** The source has the key from now on, if its ports can have what it wants. */
VlanTranslations::Status
VlanTranslations::claim( Direction d, IntfId intf, Key key, Mapping mapping, bool inLag,
                         Source source ) {
   Entry & e = entry( intf, d, key );
   if ( e.owner == Source::None && !at( intf ).reported.empty() ) {
      for ( Source any : qonVlanMappingSources ) {
         at( intf ).reported.erase( { key, d, any } );
      }
   }
   e.owner = source;
   e.mapping = mapping;
   const Status status = program( intf, d, key, inLag, Source::None );
   if ( status == Status::full || status == Status::failed ) {
      giveUp( intf, d, key, status );
   }
   return status;
}

/** Takes the key from its ports; it is free. */
void
VlanTranslations::withdraw( IntfId intf, Direction d, Key key ) {
   Velto::FirstError error;
   for ( IntfId port : targets( intf, at( intf ), isLag( intf ) ) ) {
      error.run( [&] { removePort( intf, port, d, key ); } );
   }
   Entry & e = entry( intf, d, key );
   e.announce = e.owner != Source::None ? !silent_ : e.announce;
   e.owner = Source::None;
   error.pass();
}

/** The owner's translation cannot be had, until the wish for it changes. */
void
VlanTranslations::giveUp( IntfId intf, Direction d, Key key, Status why ) {
   const Entry e = entry( intf, d, key );
   *at( intf ).givenUp.emplace( { key, d, e.owner } ).first = e.mapping;
   Velto::FirstError error;
   if ( why == Status::full ) {
      error.run(
            [&] { vlanMappingLog.full( subject( intf, d, key, e.mapping ), isNative( key ) ); } );
   }
   error.run( [&] { withdraw( intf, d, key ); } );
   error.pass();
}

void
VlanTranslations::announce( IntfId intf, Direction d, Key key ) {
   Entry & e = entry( intf, d, key );
   if ( !e.announce ) {
      return;
   }
   if ( e.owner == Source::None ) {
      e.announce = false;
      return;
   }
   const auto ports = targets( intf, at( intf ), isLag( intf ) );
   for ( IntfId port : ports ) {
      auto held = find( port, d, key );
      if ( !held || ( held->state != State::held && held->state != State::handedHeld ) ) {
         return;
      }
   }
   if ( !ports.empty() ) {
      e.announce = false;
      vlanMappingLog.programmed( subject( intf, d, key, e.mapping ), shownSource( e.owner ) );
   }
}

} // namespace Qon
