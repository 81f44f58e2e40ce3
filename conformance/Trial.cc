#include "conformance/Trial.h"

#include "platform/Kiv/Generic.h"

namespace QonConformance {

namespace {

constexpr U32 defaultPorts = 64;
constexpr std::size_t historyKept = 6;

const char *
promiseOf( const String & id ) {
   for ( auto & contract : contracts() ) {
      if ( id == contract.id ) {
         return contract.promise;
      }
   }
   VELTO_ASSERT( !"a contract without a promise" );
   return "";
}

std::set< String >
linesOf( const String & text ) {
   std::set< String > lines;
   for ( std::size_t at = 0, end; at < text.size(); at = end + 1 ) {
      end = std::min( text.find( '\n', at ), text.size() );
      lines.insert( text.substr( at, end - at ) );
   }
   return lines;
}

template< class T, class Show >
String
joined( const T & parts, Show && show ) {
   String text;
   for ( auto & part : parts ) {
      text += ( text.empty() ? "" : ", " ) + show( part );
   }
   return text.empty() ? "nothing" : text;
}

} // namespace

String
shown( const std::map< Qon::MacEntryKey, Ulnet::IntfId > & hosts ) {
   return joined( hosts, []( auto & host ) {
      auto & pair = host.first.key();
      return pair.mac().stringValue() + " in VLAN " + pair.vlan().stringValue() + " at " +
             host.second.stringValue();
   } );
}

String
shown( const ChipAdapter::Ports & ports ) {
   return joined( ports, []( auto & port ) {
      auto & [intf, member] = port;
      return intf.stringValue() + ( member.tagged ? " tagged" : " untagged" ) +
             ( member.ingress ? " in" : "" ) + ( member.egress ? " out" : "" );
   } );
}

String
shown( const HeldTopology & topology ) {
   return "VLANs " + joined( topology.vlans, []( U16 vlan ) { return Kiv::toText( vlan ); } ) +
          "; ports " + joined( topology.ports, []( auto & port ) {
             return port.first.stringValue() + " " + Kiv::toText( port.second );
          } );
}

String
shown( const std::set< Ulnet::IntfId > & ports ) {
   return joined( ports, []( auto & port ) { return port.stringValue(); } );
}

/** The generator "splitmix64". */
U64
Random::next() {
   state_ += 0x9e3779b97f4a7c15ull;
   U64 z = state_;
   z = ( z ^ ( z >> 30 ) ) * 0xbf58476d1ce4e5b9ull;
   z = ( z ^ ( z >> 27 ) ) * 0x94d049bb133111ebull;
   return z ^ ( z >> 31 );
}

Trial::Trial( const MakeChip & make, const Options & o, Note note )
    : acsd( Qon::qonCommonSmDataFactory( "acsd" ) ),
      lagConfig( Velto::make< Hardware::Lag::Config >( "hardware/lag/config" ) ),
      lagStatus( Velto::make< Hardware::Lag::Status >( "hardware/lag/status" ) ),
      bench{ scheduler, acsd, lagConfig, lagStatus }, options( o ), random( o.seed ),
      note_( std::move( note ) ) {
   acsd->initializedIs( true );
   chip = make( bench );
   if ( chip.ports.empty() ) {
      for ( U32 n = 1; n <= defaultPorts; ++n ) {
         chip.ports.push_back( Ulnet::EthIntfId::intfId( n ) );
      }
   }
}

void
Trial::did( const String & what ) {
   if ( history_.size() == historyKept ) {
      history_.erase( history_.begin() );
   }
   history_.push_back( what );
   note_( what );
}

void
Trial::run( Kiv::Seconds span ) {
   if ( chip.pump ) {
      chip.pump( span );
   }
   scheduler.runFor( span );
}

void
Trial::broken( const char * contract, const String & expected, const String & found ) const {
   String did;
   for ( auto & what : history_ ) {
      did += ( did.empty() ? "" : "; " ) + what;
   }
   throw Broken{ { contract, promiseOf( contract ), did, expected, found } };
}

String
Trial::visible() const {
   String text = Kiv::GenericIf::dump( *lagStatus ) + Kiv::GenericIf::dump( *acsd );
   if ( destroyed_ && chip.tablesInHooks ) {
      return text;
   }
   if ( chip.hosts ) {
      text += "hosts: " + shown( chip.hosts() ) + "\n";
   }
   if ( chip.topologies ) {
      for ( auto & [name, topology] : chip.topologies() ) {
         text += "topology " + name + ": " + shown( topology ) + "\n";
      }
   }
   if ( chip.vlans ) {
      for ( auto & [vlan, ports] : chip.vlans() ) {
         text += "VLAN " + Kiv::toText( vlan ) + ": " + shown( ports ) + "\n";
      }
   }
   if ( chip.lags ) {
      for ( auto & [lag, ports] : chip.lags() ) {
         text += lag.stringValue() + ": " + shown( ports ) + "\n";
      }
   }
   return text;
}

void
Trial::judgeVerify( const char * contract, const std::function< void() > & verify ) {
   auto data = acsd->verifyData();
   U32 before = data->verifyInc();
   did( "verify()" );
   verify();
   if ( data->verifyInc() != before ) {
      broken( contract, "no finding", data->verifyOutput().description() );
   }
}

void
Trial::judgeDestruction( const char * contract, const std::function< void() > & end ) {
   destroyed_ = true;
   String before = visible();
   did( "destroyed the hook objects" );
   end();
   String after = visible();
   auto was = linesOf( before ), is = linesOf( after );
   for ( auto & line : was ) {
      if ( !is.contains( line ) ) {
         broken( contract, line, "not so any more" );
      }
   }
   for ( auto & line : is ) {
      if ( !was.contains( line ) ) {
         broken( contract, "nothing new", line );
      }
   }
   did( "let late answers come" );
   run( chip.answersWithin );
}

} // namespace QonConformance
