// What the console shows of routes, FECs and adjacencies.

#include "agent/features/Arguments.h"
#include "agent/features/FibFeature.h"

namespace QonAgent {

using namespace Quarn::Fib;
using Qon::AdjErrorStates;
using Ulnet::AddressFamily;
using Velto::RangeError;

namespace {

constexpr U32 placesAPause = 500;
constexpr U32 mostNamed = 8; // FECs that the row of an adjacency names

/** What the chip says of an adjacency that is not programmed. */
const char *
whyNot( const FibAdjacency & adjacency ) {
   switch ( adjacency.inChip.state ) {
   case FibChipState::noRoom:
      return "no room in the chip";
   case FibChipState::noGroup:
      return "no group of the chip is free for its next hops";
   case FibChipState::failed:
      return "the chip failed";
   case FibChipState::requested:
      return "the chip has not answered yet";
   case FibChipState::none:
   case FibChipState::programmed:
      return "";
   }
   return "";
}

/** What is wrong with the tables' FEC, in words. */
String
whyKept( const FibFec & fec ) {
   if ( fec.errors.fecMissingFromFib() ) {
      return fec.adjacency ? "its FEC was removed before its routes"
                           : "its FEC is not in the table";
   }
   return fec.errors.invalidRouteType()       ? "its type is none that this agent knows"
          : fec.errors.nextLevelInfoMissing() ? "its next hops are not all written"
          : fec.errors.sourceFecInvalid()     ? "its next hops cannot be"
                                              : "";
}

U64
numberOf( const String & text, const char * what ) {
   try {
      return Kiv::fromText< U64 >( text );
   } catch ( const RangeError & ) {
      Kiv::textRefused( String( "the number of " ) + what, text );
   }
}

RouteKey
keyOf( U32 vrf, const Ulnet::IpGenAddr & address, U32 length ) {
   return RouteKey( Qon::VrfId( vrf ), Ulnet::IpGenPrefix( address, length ) );
}

} // namespace

FibReader &
FibFeature::served() const {
   if ( !reader_ ) {
      throw RangeError( "this agent follows no forwarding table: --fib names none" );
   }
   return *reader_;
}

const char *
FibFeature::stateOf( const FibFec & fec ) const {
   if ( !fec.adjacency || fec.errors ) {
      return fec.adjacency ? "kept" : "waiting";
   }
   return installer_ && installer_->leadsTo( fec.id ) == fec.adjacency->number() ? "programmed"
                                                                                 : "requested";
}

String
FibFeature::whyOf( const FibFec & fec ) const {
   const String why = whyKept( fec );
   return !why.empty() || !fec.adjacency ? why
          : installer_                   ? whyNot( *fec.adjacency )
                                         : "the chip programs no adjacencies";
}

Value::List
FibFeature::hops( const FibAdjacency * adjacency ) const {
   return adjacency ? hops( adjacency->l2AdjKey() ) : Value::List();
}

/** "192.0.2.1 Ethernet1 weight 3", "Vlan10 attached", "drop" */
Value::List
FibFeature::hops( const Qon::L2AdjKey & key ) const {
   Value::List all;
   for ( auto i = key.nextHopCollection().viaAndWeightIteratorConst(); i; ++i ) {
      const auto & via = *i->via();
      const auto & gen = via.viaGen();
      const auto type = via.nextHopInfo().nextHopType();
      if ( gen.l3Intf().isNull() ) {
         all.push_back( Kiv::toText( type ) );
         continue;
      }
      const String intf = agent_.names().spelling( gen.l3Intf() );
      String text =
            gen.nextHop().isNull() ? intf + " attached" : gen.nextHop().stringValue() + " " + intf;
      if ( gen.encapInfo().encapType() == Tunnel::TunnelTable::Type::mplsEncap ) {
         text += " labels";
         for ( auto & label : gen.encapInfo().labels().labelStack() ) {
            text += " " + label.stringValue();
         }
      }
      all.push_back( text + ( i->weight() == 1 ? "" : " weight " + Kiv::toText( i->weight() ) ) );
   }
   return all;
}

// --- Routes --------------------------------------------------------------------------------------

Row
FibFeature::routeRow( const RouteKey & key, Qon::GlobalFecId id ) const {
   Row row = {
         { "vrf", key.vrf }, { "prefix", key.prefix().stringValue() }, { "fec", id.value() } };
   const FibFec * fec = reader_->fec( id );
   if ( !fec ) {
      row.set( "state", "waiting" );
      row.set( "why", "it has not been looked at yet" );
      return row;
   }
   row.set( "nextHops", hops( fec->adjacency.ptr() ) );
   if ( fec->adjacency ) {
      row.set( "adjacency", fec->adjacency->number() );
   }
   row.set( "state", stateOf( *fec ) );
   row.set( "why", whyOf( *fec ) );
   return row;
}

/** Of a prefix, that route; of an address, the one that packets take; else all. */
Rows
FibFeature::routes( Arguments arguments ) const {
   if ( !arguments.has( 0 ) ) {
      return allRoutes( arguments );
   }
   FibReader & reader = served();
   const U64 vrf = arguments.has( 1 ) ? numberOf( arguments.text( 1 ), "a VRF" ) : 0;
   const String text = arguments.text( 0 );
   const bool exact = text.find( '/' ) != text.npos;
   const Ulnet::IpGenPrefix prefix( text );
   Route route;
   U32 length = prefix.length() + 1;
   do {
      --length;
      const RouteKey key = keyOf( U32( vrf ), prefix.address(), length );
      if ( vrf <= Qon::AdjPrefixListBaseKey::mostVrfId &&
           reader.route( key, &route ) == Quarn::Found::yes ) {
         return []( Row row ) -> Rows { co_yield row; }( routeRow( key, route.fecId() ) );
      }
   } while ( length && !exact );
   throw RangeError( "there is no route " + String( exact ? "" : "to " ) + text + " in VRF " +
                     Kiv::toText( vrf ) );
}

/** The routes of one VRF and family that lead to a FEC. */
template< class List >
Rows
FibFeature::routesOf( Velto::Ptr< const Qon::AdjGlobalPrefixList > fec,
                      Qon::AdjPrefixListBaseKey key ) const {
   const auto * list = fec->listOf< List >( key.vrfId() );
   if ( !list ) {
      co_return;
   }
   // A copy of few, or a walk that goes on whatever becomes of the list.
   for ( auto i = list->prefixIteratorConst(); i; ++i ) {
      const Row made = routeRow( RouteKey( key.vrfId(), i.key().genPrefix() ), fec->fecId() );
      co_yield made;
   }
}

/** By FEC, in the order of their places. */
Rows
FibFeature::allRoutes( Arguments arguments ) const {
   const bool ofOne = arguments.has( 1 );
   const U64 vrf = ofOne ? numberOf( arguments.text( 1 ), "a VRF" ) : 0;
   const Velto::Ptr< FibReader > reader( reader_ );
   for ( U32 place = 0; reader && place < reader->fecPlaces(); ++place ) {
      const FibFec * fec = reader->fecAt( place );
      const Velto::Ptr< const Qon::AdjGlobalPrefixList > held(
            fec ? reader->prefixLists()->adjGlobalPrefixList( fec->id ) : nullptr );
      if ( place % placesAPause == placesAPause - 1 ) {
         co_yield Pause();
      }
      if ( !held ) {
         continue;
      }
      std::vector< Qon::AdjPrefixListBaseKey > keys;
      for ( auto list = held->prefixListIteratorConst(); list; ++list ) {
         keys.push_back( list.key() );
      }
      for ( const auto key : keys ) {
         if ( ofOne && key.vrfId().value() != vrf ) {
            continue;
         }
         Rows of = key.family() == AddressFamily::ipv4
                         ? routesOf< Qon::VrfPrefixList >( held, key )
                         : routesOf< Qon::VrfPrefix6List >( held, key );
         while ( of.next() ) {
            co_yield of.row();
         }
      }
   }
}

Rows
FibFeature::summary() const {
   const Velto::Ptr< FibReader > reader( reader_ );
   if ( !reader ) {
      const Row made = { { "what", "tables" }, { "state", "none" }, { "why", "--fib names none" } };
      co_yield made;
      co_return;
   }
   const std::pair< const char *, U32 > counts[] = {
         { "IPv4 routes", reader->routes( AddressFamily::ipv4 ) },
         { "IPv6 routes", reader->routes( AddressFamily::ipv6 ) },
         { "routes that wait for their FEC", reader->waiting() },
         { "routes that cannot be", reader->refused() },
         { "FECs", reader->fecs() },
         { "adjacencies", reader->adjacencies().size() },
         { "lists of next hops", reader->nextHops().viaLists() },
         { "next hops", reader->nextHops().nextHops() } };
   for ( auto & [what, count] : counts ) {
      const Row made = { { "what", what }, { "count", count } };
      co_yield made;
   }
   for ( U32 i = 0; i < reader->tables().size(); ++i ) {
      const FibTableState table = reader->tables()[i];
      const String & refusal = !reader->source().refusal().empty() ? reader->source().refusal()
                                                                   : table.reader->refusal();
      const char * state = !refusal.empty()                ? "refused"
                           : !reader->source().connected() ? "no writer"
                           : !table.reader->complete()     ? "not complete"
                           : table.idle                    ? "followed"
                                                           : "behind";
      const Row made = { { "what", "table " + table.reader->name() },
                         { "count", table.told },
                         { "state", state },
                         { "since", Kiv::now() - table.reader->since() },
                         { "behind", table.behind },
                         { "overtaken", table.overtaken },
                         { "why", refusal } };
      co_yield made;
   }
}

// --- FECs and adjacencies ------------------------------------------------------------------------

Row
FibFeature::fecRow( const FibFec & fec ) const {
   const auto * list = reader_->prefixLists()->adjGlobalPrefixList( fec.id );
   Row row = { { "fec", fec.id.value() },
               { "nextHops", hops( fec.adjacency.ptr() ) },
               { "ipv4", list ? list->v4PrefixCount() : 0 },
               { "ipv6", list ? list->v6PrefixCount() : 0 },
               { "defaults",
                 list ? U32( list->defaultV4PrefixCount() + list->defaultV6PrefixCount() ) : 0 },
               { "state", stateOf( fec ) },
               { "why", whyOf( fec ) } };
   if ( fec.adjacency ) {
      row.set( "type", Kiv::toText( fec.taken.type ) );
      row.set( "version", fec.taken.version );
      row.set( "adjacency", fec.adjacency->number() );
   }
   return row;
}

Rows
FibFeature::fecs( Arguments arguments ) const {
   const Velto::Ptr< FibReader > reader( arguments.has( 0 ) ? &served() : reader_.ptr() );
   if ( arguments.has( 0 ) ) {
      const U64 number = numberOf( arguments.text( 0 ), "a FEC" );
      const FibFec * fec = reader->fec( Qon::GlobalFecId( number ) );
      if ( !fec ) {
         throw RangeError( "there is no FEC " + Kiv::toText( number ) );
      }
      const Row made = fecRow( *fec );
      co_yield made;
      co_return;
   }
   for ( U32 place = 0; reader && place < reader->fecPlaces(); ++place ) {
      if ( const FibFec * fec = reader->fecAt( place ) ) {
         const Row made = fecRow( *fec );
         co_yield made;
      } else if ( place % placesAPause == 0 ) {
         co_yield Pause();
      }
   }
}

Row
FibFeature::adjacencyRow( const FibAdjacency & adjacency ) const {
   Value::List some;
   for ( auto i = adjacency.adjEntryIteratorConst(); i && some.size() < mostNamed; ++i ) {
      some.push_back( i.key().stringValue() );
   }
   if ( adjacency.adjEntrys() > some.size() ) {
      some.push_back( "..." );
   }
   const FibInChip & in = adjacency.inChip;
   Row row = { { "adjacency", adjacency.number() },
               { "nextHops", hops( &adjacency ) },
               { "users", adjacency.adjEntrys() },
               { "fecs", some },
               { "prefixes", adjacency.configRefCount() },
               { "state", !adjacency.adjEntrys()                 ? "leaving"
                          : in.state == FibChipState::programmed ? "programmed"
                          : in.state <= FibChipState::requested  ? "requested"
                                                                 : "waiting" },
               { "why", installer_ ? whyNot( adjacency ) : "the chip programs no adjacencies" } };
   if ( in.state != FibChipState::none ) {
      row.set( "since", Kiv::now() - in.since );
      row.set( "inChip", in.fecs );
   }
   return row;
}

Rows
FibFeature::adjacencies( Arguments arguments ) const {
   const Velto::Ptr< FibReader > reader( arguments.has( 0 ) ? &served() : reader_.ptr() );
   if ( arguments.has( 0 ) ) {
      const U64 number = numberOf( arguments.text( 0 ), "an adjacency" );
      const auto adjacency = reader->adjacencies().at( U32( std::min< U64 >( number, ~0u ) ) );
      if ( !adjacency ) {
         throw RangeError( "there is no adjacency " + Kiv::toText( number ) );
      }
      const Row made = adjacencyRow( *adjacency );
      co_yield made;
      co_return;
   }
   for ( U32 number = 1; reader && number <= reader->adjacencies().mostNumber(); ++number ) {
      if ( const auto adjacency = reader->adjacencies().at( number ) ) {
         const Row made = adjacencyRow( *adjacency );
         co_yield made;
      } else if ( number % placesAPause == 0 ) {
         co_yield Pause();
      }
   }
}

// --- What the chip holds -------------------------------------------------------------------------

Rows
FibFeature::hardware() const {
   const auto chip = part_ ? part_->readAdjacencies() : nullptr;
   if ( !chip ) {
      notServed( agent_, "the reading of adjacencies" );
   }
   U32 place = 0;
   for ( QonChip::HeldAdjacency held; chip->next( place, held ); ) {
      Row made = { { "place", place },
                   { "adjacency", held.number },
                   { "nextHops", hops( held.key ) },
                   { "users", held.fecs },
                   { "stale", held.stale ? "of a former agent" : "" } };
      if ( held.group ) {
         made.set( "group", *held.group );
      }
      co_yield made;
   }
}

Rows
FibFeature::resources() const {
   if ( !part_ ) {
      notServed( agent_, "adjacencies" );
   }
   const auto room = part_->adjacencyRoom().value_or( QonChip::AdjacencyRoom() );
   const U32 waiting = installer_ ? installer_->adjacencies( FibChipState::noRoom ) : 0;
   const U32 noGroup = installer_ ? installer_->adjacencies( FibChipState::noGroup ) : 0;
   const Row rows[] = { { { "resource", "adjacencies" },
                          { "used", room.adjacencies },
                          { "of", room.adjacenciesAtMost } },
                        { { "resource", "groups for several next hops" },
                          { "used", room.groups },
                          { "of", room.groupsAtMost } },
                        { { "resource", "adjacencies without room" }, { "used", waiting } },
                        { { "resource", "adjacencies without a group" }, { "used", noGroup } } };
   for ( const Row & made : rows ) {
      co_yield made;
   }
}

std::vector< ShowCommand >
FibFeature::showCommands() {
   const auto text = []( const char * name, const char * what, const char * keyword = "" ) {
      return Argument{ Argument::Kind::text, name, what, false, nullptr, keyword };
   };
   const Column hopsColumn = { "nextHops", "Next hops" }, state = { "state", "State" },
                why = { "why", "Why" }, fec = { "fec", "FEC", true },
                adjacency = { "adjacency", "Adjacency", true };
   std::vector< ShowCommand > all = {
         { "route",
           "a prefix, the route that an address takes, or all: next hops, state, and why not",
           { text( "PREFIX", "route" ), text( "VRF", "VRF", "vrf" ) },
           { { "vrf", "VRF", true },
             { "prefix", "Prefix" },
             fec,
             hopsColumn,
             adjacency,
             state,
             why },
           [this]( auto & arguments ) { return routes( arguments ); } },
         { "route summary",
           "how many routes, FECs and adjacencies there are, and how the tables are followed",
           {},
           { { "what", "What" },
             { "count", "Count", true },
             state,
             { "since", "Since s", true },
             { "behind", "Behind", true },
             { "overtaken", "Overtaken", true },
             why },
           [this]( auto & ) { return summary(); } },
         { "fec",
           "forwarding equivalence classes: next hops, prefixes, state, and why not",
           { text( "FEC", "FEC" ) },
           { fec,
             { "type", "Type" },
             hopsColumn,
             adjacency,
             { "ipv4", "IPv4", true },
             { "ipv6", "IPv6", true },
             { "defaults", "Defaults", true },
             state,
             why },
           [this]( auto & arguments ) { return fecs( arguments ); } },
         { "adjacency",
           "distinct sets of next hops: who uses them, how many prefixes, state, and why not",
           { text( "ADJACENCY", "adjacency" ) },
           { adjacency,
             hopsColumn,
             { "users", "FECs", true },
             { "fecs", "Which" },
             { "prefixes", "Prefixes", true },
             state,
             { "since", "Since s", true },
             { "inChip", "In the chip", true },
             why },
           [this]( auto & arguments ) { return adjacencies( arguments ); } } };
   for ( const ShowCommand & command : hardwareCommands() ) {
      all.push_back( command );
   }
   return all;
}

std::vector< ShowCommand >
FibFeature::hardwareCommands() {
   return { { "hw adjacency",
              "adjacencies that the chip holds",
              {},
              { { "place", "Place", true },
                { "adjacency", "Adjacency", true },
                { "nextHops", "Next hops" },
                { "group", "Group", true },
                { "users", "FECs", true },
                { "stale", "Stale" } },
              [this]( auto & ) { return hardware(); } },
            { "resources adjacency",
              "what adjacencies use of the chip",
              {},
              { { "resource", "Resource" }, { "used", "Used", true }, { "of", "Of", true } },
              [this]( auto & ) { return resources(); } } };
}

} // namespace QonAgent
