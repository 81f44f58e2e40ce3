// The model of the forwarding table: what must be, from what was written alone.

#include <algorithm>

#include "simulation/SimFib.h"
#include "simulation/World.h"

namespace Sim {

using namespace Quarn::Fib;
using Ulnet::AddressFamily;

namespace {

String
joined( const std::vector< String > & parts ) {
   String text;
   for ( const String & part : parts ) {
      text += ( text.empty() ? "" : ", " ) + part;
   }
   return text;
}

/** Equal ones together, in an order of their own. */
String
sorted( const std::map< String, U64 > & weights ) {
   std::vector< String > parts;
   for ( auto & [hop, weight] : weights ) {
      parts.push_back( hop + " *" + std::to_string( weight ) );
   }
   return joined( parts );
}

String
named( U32 fec ) {
   return "FEC " + std::to_string( fec );
}

} // namespace

// --- Next hops, as text --------------------------------------------------------------------------

/** None if the FEC is not whole, or cannot be. */
std::optional< String >
SimFib::content( U32 fec ) const {
   const auto held = fecs_.read().find( fec );
   if ( held == fecs_.read().end() ) {
      return std::nullopt;
   }
   const Fec & record = held->second;
   if ( record.type == FecType::drop || record.type == FecType::local ) {
      return record.vias ? std::nullopt
                         : std::optional< String >( Kiv::toText( U32( record.type ) ) );
   }
   if ( record.type > FecType::nextHopGroup || record.vias == 0 || record.vias > mostVias ) {
      return std::nullopt;
   }
   std::vector< String > group;
   std::map< String, U64 > weights;
   for ( U32 i = 0; i < record.vias; ++i ) {
      const auto found = vias_.read().find( fec * 8 + i );
      if ( found == vias_.read().end() ) {
         return std::nullopt;
      }
      const Quarn::Fib::Via & via = found->second;
      if ( via.version != record.version || via.weight == 0 || via.labels > 1 ||
           via.family > AddressFamily::ipv6 || via.intf.type == Ulnet::IntfType( 77 ) ) {
         return std::nullopt;
      }
      String hop = via.intf.intfId().stringValue();
      hop += via.family == AddressFamily::none ? "" : " " + via.nextHopAddr().stringValue();
      hop += via.labels ? " +" + std::to_string( via.label[0] ) : "";
      group.push_back( hop + " *" + std::to_string( via.weight ) );
      weights[hop] += via.weight;
   }
   return Kiv::toText( U32( record.type ) ) + ": " +
          ( record.type == FecType::nextHopGroup ? joined( group ) : sorted( weights ) );
}

/** The same of what the library made. */
String
SimFib::shown( const Qon::L2AdjKey & key ) {
   const auto type = FecType( key.adjType() );
   const String text = Kiv::toText( U32( type ) );
   if ( type == FecType::drop || type == FecType::local ) {
      return text;
   }
   std::vector< String > group;
   std::map< String, U64 > weights;
   for ( auto i = key.nextHopCollection().viaAndWeightIteratorConst(); i; ++i ) {
      const auto & gen = i->via()->viaGen();
      String hop = gen.l3Intf().stringValue();
      hop += gen.nextHop().isNull() ? "" : " " + gen.nextHop().stringValue();
      if ( gen.encapInfo().encapType() == Tunnel::TunnelTable::Type::mplsEncap ) {
         for ( auto & label : gen.encapInfo().labels().labelStack() ) {
            hop += " +" + label.stringValue();
         }
      }
      group.push_back( hop + " *" + std::to_string( i->weight() ) );
      weights[hop] += i->weight();
   }
   return text + ": " + ( type == FecType::nextHopGroup ? joined( group ) : sorted( weights ) );
}

/** "" without an adjacency. */
String
SimFib::actual( U32 fec ) const {
   const auto * held = reader_->fec( GlobalFecId( fec ) );
   return held && held->adjacency ? shown( held->adjacency->l2AdjKey() ) : "";
}

SimFib::FecRoutes
SimFib::routesByFec() const {
   FecRoutes all;
   for ( auto & [number, route] : routes_.read() ) {
      if ( possible( number ) ) {
         all[U32( route.fec )].insert( number );
      }
   }
   return all;
}

/** What may be read by now. */
void
SimFib::remember() {
   unchecked_ = true;
   const FecRoutes routes = routesByFec();
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      Past & past = past_[fec];
      past.gone = past.gone || !fecs_.read().contains( fec );
      const auto now = routes.find( fec );
      std::erase_if( past.routes, [&]( U32 route ) {
         return now == routes.end() || !now->second.contains( route );
      } );
      if ( past.gone && past.routes.empty() ) {
         past.had.insert( "" );
      }
      if ( const auto & whole = whole_[fec] = content( fec ) ) {
         past.had.insert( *whole );
         ever_[fec].insert( *whole );
      }
   }
}

// --- While something happens ---------------------------------------------------------------------

void
SimFib::complain( const String & what ) {
   world_.report( "fib", what );
}

/** The counts differ from those before by this one prefix. */
void
SimFib::told( const Qon::AdjGlobalPrefixList & list, AddressFamily family ) {
   const U64 fec = list.fecId().value();
   Counts & counts = told_[fec];
   const bool v4 = family == AddressFamily::ipv4;
   U32 & held = v4 ? counts.v4 : counts.v6;
   const U32 now = v4 ? list.v4PrefixCount() : list.v6PrefixCount();
   const U32 other = v4 ? list.v6PrefixCount() : list.v4PrefixCount();
   if ( ( now != held + 1 && now + 1 != held ) || other != ( v4 ? counts.v6 : counts.v4 ) ) {
      complain( "notification: of FEC " + std::to_string( fec ) + " with other counts" );
   }
   held = now;
   const bool outer = telling_.insert( fec ).second;
   const Velto::AtEnd out( [&] { outer ? void( telling_.erase( fec ) ) : void(); } );
   nest();
   raise();
}

void
SimFib::leads( GlobalFecId fec ) {
   const Qon::L2AdjKey * key = table_.hopsOf( fec );
   if ( !key || !ever_[U32( fec.value() )].contains( shown( *key ) ) ) {
      complain( "chip: FEC " + fec.stringValue() + " leads where it never should" );
   }
}

void
SimFib::drops( GlobalFecId fec ) {
   const auto * held = reader_ ? reader_->fec( fec ) : nullptr;
   if ( held && held->adjacency && !mayStayArmed() ) {
      complain( "chip: packets of FEC " + fec.stringValue() + " are dropped for nothing" );
   }
}

// --- Whenever the reader has nothing to do -------------------------------------------------------

String
SimFib::checkInvariants() const {
   if ( !table_.refused().empty() ) {
      return "refused: " + table_.refused().front();
   }
   if ( !reader_ ) {
      return {};
   }
   if ( const String wrong = reader_->checkInvariants(); !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   if ( const String wrong = installer_->checkInvariants(); !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   return reader_->idle() && !unseen_ && std::exchange( unchecked_, false ) ? checkRead()
                                                                            : String();
}

String
SimFib::checkRead() const {
   const FecRoutes routes = routesByFec();
   Actuals is;
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      is[fec] = actual( fec );
   }
   U32 refused = 0, waiting = 0, v4 = 0, v6 = 0, lists = 0;
   for ( auto & [number, route] : routes_.read() ) {
      const bool isV4 = routeKey( number ).family == AddressFamily::ipv4;
      refused += !possible( number );
      v4 += possible( number ) && isV4;
      v6 += possible( number ) && !isV4;
      waiting += possible( number ) && is[route.fec].empty();
   }
   if ( reader_->refused() != refused || reader_->waiting() != waiting ||
        reader_->routes( AddressFamily::ipv4 ) != v4 ||
        reader_->routes( AddressFamily::ipv6 ) != v6 ) {
      return "counts: of routes";
   }
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      const auto leading = routes.find( fec );
      const auto prefixes = leading == routes.end() ? std::set< U32 >() : leading->second;
      lists += !prefixes.empty();
      String wrong = checkFec( fec, prefixes, is[fec] );
      if ( wrong.empty() ) {
         wrong = checkList( fec, prefixes );
      }
      if ( !wrong.empty() ) {
         return wrong;
      }
   }
   for ( auto & [fec, prefixes] : own_ ) {
      lists += !prefixes.empty();
      if ( const String wrong = checkList( fec, prefixes ); !wrong.empty() ) {
         return wrong;
      }
   }
   if ( reader_->prefixLists()->adjGlobalPrefixLists() != lists ) {
      return "lists: there is one of a FEC without prefixes";
   }
   return checkAdjacencies( routes, is );
}

String
SimFib::checkFec( U32 fec, const std::set< U32 > & routes, const String & is ) const {
   const bool there = fecs_.read().contains( fec );
   if ( bool( reader_->fec( GlobalFecId( fec ) ) ) != ( there || !routes.empty() ) ) {
      return "FEC: " + named( fec ) + " is there, and should not be, or the other way round";
   }
   const auto & whole = whole_[fec];
   if ( whole ? is != *whole : !past_[fec].had.contains( is ) ) {
      return "FEC: " + named( fec ) + " has " + is + " and not " +
             whole.value_or( "any of before" );
   }
   past_[fec] = { { is }, !there, routes };
   return {};
}

String
SimFib::checkList( U32 fec, const std::set< U32 > & routes ) const {
   const auto * list = reader_->prefixLists()->adjGlobalPrefixList( GlobalFecId( fec ) );
   if ( bool( list ) == routes.empty() ) {
      return "lists: " + named( fec ) + " has one, and should not, or the other way round";
   }
   Counts counts;
   for ( U32 route : routes ) {
      const RouteKey key = routeKey( route );
      const bool v4 = key.family == AddressFamily::ipv4;
      ++( v4 ? counts.v4 : counts.v6 );
      ( v4 ? counts.defaults4 : counts.defaults6 ) += key.length == 0;
      const auto has = [&]( const auto * of, auto prefix ) {
         std::copy_n( key.address.bytes, prefix.size(), prefix.begin() );
         using Prefix = typename std::remove_pointer_t< decltype( of ) >::Prefix;
         return of && of->prefixHas( Prefix( prefix, key.length ) );
      };
      if ( v4 ? !has( list->vrfPrefixList( key.vrfId() ), Ulnet::Prefix::Bytes() )
              : !has( list->vrfPrefix6List( key.vrfId() ), Ulnet::Ip6Prefix::Bytes() ) ) {
         return "lists: " + named( fec ) + " lacks " + key.prefix().stringValue();
      }
   }
   if ( list && ( list->v4PrefixCount() != counts.v4 || list->v6PrefixCount() != counts.v6 ||
                  list->defaultV4PrefixCount() != counts.defaults4 ||
                  list->defaultV6PrefixCount() != counts.defaults6 ) ) {
      return "counts: of the prefixes of " + named( fec );
   }
   const auto told = told_.find( fec );
   const Counts last = told == told_.end() ? Counts() : told->second;
   return last.v4 == counts.v4 && last.v6 == counts.v6
                ? ""
                : "notification: the last one of " + named( fec ) + " is missing";
}

/** Those that FECs use: one for equal next hops, with exactly these FECs and their prefixes. */
String
SimFib::checkAdjacencies( const FecRoutes & routes, const Actuals & is ) const {
   struct Users {
      std::set< U32 > fecs;
      U32 prefixes = 0;
   };
   std::map< String, Users > wanted;
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      if ( !is[fec].empty() ) {
         wanted[is[fec]].fecs.insert( fec );
         wanted[is[fec]].prefixes += routes.contains( fec ) ? U32( routes.at( fec ).size() ) : 0;
      }
   }
   U32 used = 0;
   for ( U32 number = 1; number <= reader_->adjacencies().mostNumber(); ++number ) {
      const auto adjacency = reader_->adjacencies().at( number );
      if ( !adjacency || !adjacency->adjEntrys() ) {
         continue;
      }
      ++used;
      const Users & users = wanted[shown( adjacency->l2AdjKey() )];
      bool all = adjacency->adjEntrys() == users.fecs.size();
      for ( U32 fec : users.fecs ) {
         all = all && adjacency->adjEntryHas( GlobalFecId( fec ) ) &&
               adjacency->isTableTypeSetForAdj( GlobalFecId( fec ), Qon::TableType::unicast );
      }
      if ( !all || adjacency->configRefCount() != users.prefixes ) {
         return "adjacency: " + std::to_string( number ) + " has other FECs or prefixes";
      }
   }
   return used == wanted.size() ? "" : "adjacency: equal next hops have two";
}

// --- At rest -------------------------------------------------------------------------------------

String
SimFib::checkAtRest() const {
   if ( !reader_ || !reader_->idle() || unseen_ ) {
      return "reader: it has something to do";
   }
   if ( !installer_->staleGone() ) {
      return "chip: what a former agent left is still there";
   }
   const String wrong = checkRead();
   return wrong.empty() ? checkChip() : wrong;
}

String
SimFib::checkChip() const {
   std::set< String > wanted, held;
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      wanted.insert( actual( fec ) );
   }
   wanted.erase( "" );
   const bool full = table_.adjacencies().size() >= table_.adjacenciesAtMost();
   const bool groupsFull = table_.groups() >= table_.groupsAtMost();
   for ( auto & [place, adjacency] : table_.adjacencies() ) {
      const String is = shown( adjacency.key );
      const bool kept = groupsFull && !adjacency.group && adjacency.fecs;
      if ( ( !wanted.contains( is ) && !kept ) || !held.insert( is ).second ) {
         return "chip: it holds " + is + " for nobody, or twice";
      }
   }
   U32 leading = 0;
   for ( U32 fec = 1; fec <= fecCount; ++fec ) {
      const GlobalFecId id( fec );
      const Qon::L2AdjKey * hops = table_.hopsOf( id );
      const String is = actual( fec ), way = hops ? shown( *hops ) : "";
      leading += bool( hops );
      if ( is.empty() ? hops != nullptr : held.contains( is ) && way != is ) {
         return "chip: " + named( fec ) + " leads to " + way + " and not to " + is;
      }
      if ( is.empty() ) {
         continue;
      }
      const auto & adjacency = *reader_->fec( id )->adjacency;
      const bool there = held.contains( is );
      if ( !there && !full && !( adjacency.several() && groupsFull ) ) {
         return "chip: " + is + " is not there, and there is room";
      }
      if ( adjacency.hwState().installed() != there ) {
         return "state: that of " + is + " is another one";
      }
   }
   return table_.fecs() == leading ? "" : "chip: FECs lead somewhere that nobody knows of";
}

String
SimFib::checkTornDown() const {
   return reader_->fecs() || reader_->adjacencies().size() || reader_->nextHops().nextHops() ||
                      reader_->prefixLists()->adjGlobalPrefixLists() || table_.fecs() ||
                      !table_.adjacencies().empty() || table_.groups()
                ? "left over: FECs or adjacencies"
                : "";
}

} // namespace Sim
