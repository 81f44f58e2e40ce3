#include "Qon/vlanmapping/VlanTranslations.h"

#include "platform/Flintlog/Trace.h"

namespace Qon {

using Ulnet::IntfId;

bool
VlanTranslations::Interface::empty() const {
   return !pins && !input[0] && !input[1] && !ruler && members.empty() && entries[0].empty() &&
          entries[1].empty();
}

// --- The tables ----------------------------------------------------------------------------------

VlanTranslations::Interface &
VlanTranslations::make( IntfId intf ) {
   forgetWishes(); // one that was dropped may have had its place
   recentIntf_ = intf;
   recent_ = ( *interfaces_.emplace( intf ).first = std::make_unique< Interface >() ).get();
   return *recent_;
}

const VlanTranslations::Interface *
VlanTranslations::look( IntfId intf ) const {
   auto held = interfaces_.find( intf );
   recentIntf_ = intf;
   return recent_ = held ? held->get() : nullptr;
}

void
VlanTranslations::dropIfEmpty( IntfId intf ) {
   auto i = find( intf );
   if ( i && i->empty() ) {
      recent_ = nullptr;
      interfaces_.erase( intf );
   }
}

std::span< const IntfId >
VlanTranslations::targets( const IntfId & intf, const Interface & i, bool inLag ) {
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
   forgetWishes(); // that were the former one's
   if ( !config ) {
      askAll( intf, source, false );
   }
}

void
VlanTranslations::askKey( IntfId intf, Direction d, Key key, Source apply ) {
   ask( { What::key, d, apply, intf, key } );
}

bool
VlanTranslations::wishChanged( IntfId intf, Direction d, Key key, Source source ) {
   forgetOld( intf, d, key, source );
   forgetWishes();
   const bool there = knownWish( place( intf, d, key ), source ).has_value();
   const Question question = { What::key, d, Source::None, intf, key };
   if ( holdUp_ ) {
      ask( question );
   } else {
      work_.ask( sm_, question, [this]( const Question & q ) { answer( q ); } );
   }
   return there;
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
   if ( !i.remembers() ) {
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
      reviewKey( place( intf, q.direction, q.key ), q.apply );
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
VlanTranslations::reviewKey( const Place & p, Source apply ) {
   const Velto::AtEnd done( [this] { forgetWishes(); } );
   if ( p.of.remembers() ) {
      for ( Source source : qonVlanMappingSources ) {
         forgetOld( p.intf, p.direction, p.key, source );
      }
   }
   if ( !p.of.entries[U8( p.direction )].find( p.key ) && !knownWish( p, Source::BriselCli ) &&
        !knownWish( p, Source::Steerline ) ) {
      return;
   }
   settleOwner( p, apply );
   const Source owner = p.entry().owner;
   if ( owner == Source::None ) {
      if ( !p.of.ruler ) {
         withdraw( p ); // what an exception left behind
      }
   } else if ( p.of.input[0] && p.of.input[1] ) {
      reportConflicts( p, owner );
   }
   conclude( p );
}

/** Tells everybody what is so now. */
void
VlanTranslations::conclude( const Place & p ) {
   for ( IntfId port : targets( p, p.lag() ) ) {
      publishPort( p, port );
   }
   if ( p.entry().announce ) {
      announce( p );
   }
   if ( isNative( p.key ) && p.direction == Direction::egress ) {
      reviewEncap( p.intf );
   }
   if ( p.entry().empty() ) {
      p.of.entries[U8( p.direction )].erase( p.key );
   }
}

/** Until somebody owns the key and has it on all ports, or nobody wants it who could have it. */
void
VlanTranslations::settleOwner( const Place & p, Source apply ) {
   Source former = Source::None;
   for ( ;; ) {
      Entry & e = p.entry();
      if ( e.owner == Source::None ) {
         const Source next = nextOwner( p, former );
         if ( next == Source::None ) {
            return;
         }
         claim( p, *knownWish( p, next ), p.lag(), next );
         if ( p.entry().owner != Source::None ) {
            return;
         }
         former = next;
         continue;
      }
      const Source owner = e.owner;
      const auto & wanted = knownWish( p, owner );
      if ( !wanted ) {
         withdraw( p );
         former = owner;
         continue;
      }
      e.mapping = *wanted;
      const Status status = program( p, p.lag(), apply == owner ? apply : Source::None );
      if ( status != Status::full && status != Status::failed ) {
         return;
      }
      giveUp( p, status );
      former = owner;
   }
}

/** Who claims a key that is free: in order, but whoever has just lost it last. */
QonVlanMappingSource
VlanTranslations::nextOwner( const Place & p, Source former ) const {
   auto may = [&]( Source source ) {
      return knownWish( p, source ) && !p.of.givenUp.has( { p.key, p.direction, source } );
   };
   for ( Source source : qonVlanMappingSources ) {
      if ( source != former && may( source ) ) {
         return source;
      }
   }
   return former != Source::None && may( former ) ? former : Source::None;
}

void
VlanTranslations::reportConflicts( const Place & p, Source owner ) {
   for ( Source source : qonVlanMappingSources ) {
      if ( source != owner ) {
         const auto & wanted = knownWish( p, source );
         if ( wanted && !p.of.givenUp.has( { p.key, p.direction, source } ) ) {
            reportConflict( p, source, *wanted );
         }
      }
   }
}

/** Once for what is wanted; with another owner all of it is forgotten. */
void
VlanTranslations::reportConflict( const Place & p, Source source, Mapping wanted ) {
   auto [known, fresh] = p.of.reported.emplace( { p.key, p.direction, source }, wanted );
   if ( fresh || !( *known == wanted ) ) {
      *known = wanted;
      vlanMappingLog.conflict( subject( p, wanted ), shownSource( source ),
                               shownSource( p.entry().owner ) );
   }
}

bool
VlanTranslations::owned( Interface & i, Direction d, Key key ) {
   auto e = i.entries[U8( d )].find( key );
   return e && e->owner != Source::None;
}

VlanTranslations::Status
VlanTranslations::add( Direction d, IntfId intf, Key key, Mapping mapping, bool inLag,
                       Source source ) {
   if ( !inRange( key, mapping ) ) {
      isNative( key ) ? void( Bridging::VlanId( key.vlanId() ) ) : Bridging::checkVlanXlate( key );
      Bridging::checkVlanXlate( mapping );
   }
   const Velto::Hold alive( sm_ );
   const Place p = place( intf, d, key );
   ++p.of.pins;
   const Velto::AtEnd done( [&] { --p.of.pins; } );
   const Source owner = p.entry().owner;
   Status status = Status::failed;
   if ( owner != Source::None && owner != source ) {
      reportConflict( p, source, mapping );
   } else {
      p.entry().announce = false;
      if ( U16 & native = p.of.native[U8( d )];
           isNative( key ) && !owned( p.of, d, nativeKey( Bridging::VlanIdOrNone( native ) ) ) ) {
         native = key.vlanId(); // until the configuration says something
      }
      status = claim( p, mapping, inLag, source );
   }
   conclude( p );
   sm_->tell( intf, d, key );
   return status;
}

void
VlanTranslations::del( Direction d, IntfId intf, Key key, Source source ) {
   auto e = find( intf, d, key );
   if ( e && e->owner == source ) {
      const Velto::Hold alive( sm_ );
      const Place p = place( intf, d, key );
      ++p.of.pins;
      const Velto::AtEnd done( [&] { --p.of.pins; } );
      withdraw( p );
      if ( isNative( key ) && d == Direction::egress ) {
         reviewEncap( intf );
      }
      sm_->tell( intf, d, key );
   }
}

/** The source has the key from now on, if its ports can have what it wants. */
VlanTranslations::Status
VlanTranslations::claim( const Place & p, Mapping mapping, bool inLag, Source source ) {
   Entry & e = p.entry();
   if ( e.owner == Source::None ) {
      for ( Source any : qonVlanMappingSources ) {
         p.of.reported.erase( { p.key, p.direction, any } );
      }
   }
   e.owner = source;
   e.mapping = mapping;
   const Status status = program( p, inLag, Source::None );
   if ( status == Status::full || status == Status::failed ) {
      giveUp( p, status );
   }
   return status;
}

/** Takes the key from its ports; it is free. */
void
VlanTranslations::withdraw( const Place & p ) {
   Velto::FirstError error;
   for ( IntfId port : targets( p, p.lag() ) ) {
      error.run( [&] { removePort( p, port ); } );
   }
   Entry & e = p.entry();
   e.announce = e.owner != Source::None ? !silent_ : e.announce;
   e.owner = Source::None;
   error.pass();
}

/** The owner's translation cannot be had, until the wish for it changes. */
void
VlanTranslations::giveUp( const Place & p, Status why ) {
   const Entry e = p.entry();
   *p.of.givenUp.emplace( { p.key, p.direction, e.owner } ).first = e.mapping;
   Velto::FirstError error;
   if ( why == Status::full ) {
      error.run( [&] { vlanMappingLog.full( subject( p, e.mapping ), isNative( p.key ) ); } );
   }
   error.run( [&] { withdraw( p ); } );
   error.pass();
}

void
VlanTranslations::announce( const Place & p ) {
   Entry & e = p.entry();
   if ( e.owner == Source::None ) {
      e.announce = false;
      return;
   }
   const auto ports = targets( p, p.lag() );
   for ( IntfId port : ports ) {
      auto held = find( port, p.direction, p.key );
      if ( !held || ( held->state != State::held && held->state != State::handedHeld ) ) {
         return;
      }
   }
   if ( !ports.empty() ) {
      e.announce = false;
      vlanMappingLog.programmed( subject( p, e.mapping ), shownSource( e.owner ) );
   }
}

} // namespace Qon
