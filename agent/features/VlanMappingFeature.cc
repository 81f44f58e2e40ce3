#include "agent/features/VlanMappingFeature.h"

#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::SwitchportMode;
using Bridging::VlanIdOrNone;
using Ulnet::IntfId;

namespace {

constexpr char mappingGenerationOption[] = "vlan-mapping";
const std::vector< String > directionWords = { "ingress", "egress" };
const std::vector< String > sourceWords = { "cli", "flow" };

Bridging::VlanMappingDirection
direction( U32 word ) {
   return word ? Bridging::VlanMappingDirection::egress : Bridging::VlanMappingDirection::ingress;
}

/** The index of a word; Velto::RangeError says which there are. */
U32
wordOf( const Json & line, const char * field, const std::vector< String > & words ) {
   const String given = fieldOf< String >( line, field );
   for ( U32 i = 0; i < words.size(); ++i ) {
      if ( words[i] == given ) {
         return i;
      }
   }
   String all;
   for ( auto & word : words ) {
      all += ( all.empty() ? "" : " or " ) + word;
   }
   throw Velto::RangeError( String( field ) + " is " + all + ", not '" + given + "'" );
}

U16
vlanOf( const Json & line, const char * field ) {
   return hasField( line, field ) ? VlanIdOrNone( fieldOf< U32 >( line, field ) ).value()
                                  : U16( 0 );
}

/** A piece of a row's key. */
U16
vlanOf( const String & piece ) {
   try {
      return Bridging::VlanId( piece ).value();
   } catch ( const Velto::RangeError & ) {
      throw RowError( "", "'" + piece + "' is not a VLAN from 1 to 4094" );
   }
}

} // namespace

std::vector< FeatureOption >
VlanMappingFeature::options() {
   return { { mappingGenerationOption, { "1", "2" }, "the generation of VLAN mapping" } };
}

template< class T >
Velto::Ptr< T >
VlanMappingFeature::mount( const char * path ) const {
   return agent_.entities().mount< T >( path );
}

VlanMappingFeature::VlanMappingFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::VlanMappingPart >() ),
      config_( mount< Bridging::Config >( Paths::bridgingConfig ) ),
      flow_( mount< Qon::QonFlowVlanXlateConfigDir >( Paths::flowVlanXlateConfig ) ) {
   if ( part_ ) {
      agent.setting( mappingGenerationOption ) == "1" ? makeFirst() : makeSecond();
   }
}

VlanMappingFeature::~VlanMappingFeature() {
   if ( first_ ) {
      first_->listenerIs( nullptr );
   }
   if ( second_ ) {
      second_->listenerIs( nullptr );
   }
}

void
VlanMappingFeature::makeFirst() {
   using Configs = Qon::QonVlanMappingConfigDir;
   using Statuses = Qon::QonVlanMappingStatusDir;
   const auto ingress = mount< Statuses >( Paths::ingVlanMappingStatus );
   const auto egress = mount< Statuses >( Paths::egrVlanMappingStatus );
   first_ = part_->makeVlanMappingSm(
         { agent_.acsd(), config_, flow_, mount< Configs >( Paths::ingVlanMappingConfig ),
           mount< Configs >( Paths::egrVlanMappingConfig ),
           mount< Qon::QonVlanMappingIntfConfigDir >( Paths::vlanMappingIntfConfig ), ingress,
           egress, mount< Qon::QonVlanLagMemberStatusDir >( Paths::vlanLagMemberStatus ),
           agent_.acsd()->verifyData() },
         { ingress, egress } );
   first_->listenerIs( this );
   first_->initializedIs( true );
}

void
VlanMappingFeature::makeSecond() {
   using Output = Qon::VlanMappingOutputState;
   portToLag_ = mount< Qon::ProgrammedPortToLag >( Paths::programmedPortToLag );
   merged_ = mount< Qon::MergedVlanMappingConfig >( Paths::mergedVlanMappingConfig );
   status_ = mount< Qon::SourceVlanMappingStatusDir >( Paths::sourceVlanMappingStatus );
   const auto platform =
         mount< Qon::PlatformVlanMappingConfig >( Paths::platformVlanMappingConfig );
   const auto answers = mount< Qon::PlatformVlanMappingStatus >( Paths::platformVlanMappingStatus );
   portToLagHeard_.attach( agent_.acsd(),
                           [this]( const IntfId & port ) { portToLagHeard( port ); } );
   for ( auto && [port, lag] : agent_.acsd()->portToLagIteratorConst() ) {
      portToLagHeard( port );
   }
   second_ = Qon::VlanMapping::VlanMappingSm2Is(
         { agent_.acsd(), config_, flow_, portToLag_, answers,
           mount< Qon::SourceVlanMappingConfigDir >( Paths::sourceVlanMappingConfig ), status_,
           merged_, platform, mount< Qon::PortChannelInterlockDir >( Paths::portChannelInterlock ),
           mount< Output >( Paths::bridgingConfigOutputState ),
           mount< Output >( Paths::qonFlowConfigOutputState ),
           mount< Output >( Paths::nativeVlanConfigOutputState ), &agent_.scheduler() } );
   second_->listenerIs( this );
   second_->initializedIs( true );
   follower_ = part_->makePlatformFollower( platform, answers );
}

void
VlanMappingFeature::portToLagHeard( IntfId port ) {
   const IntfId lag = agent_.acsd()->portToLag( port );
   lag ? portToLag_->portToLagIs( port, lag ) : portToLag_->portToLagDel( port );
}

// --- What is wanted ------------------------------------------------------------------------------

/** INTERFACE|DIRECTION|VLAN or INTERFACE|DIRECTION|VLAN|INNER. */
VlanMappingFeature::Wish
VlanMappingFeature::wishOf( ConfigReader & reader, const ConfigRow & row ) const {
   const U32 parts = row.parts() == 4 ? 4 : 3;
   Wish wish;
   wish.intf = reader.portOrChannel( "", row.part( 0, parts ) );
   const String word = row.part( 1, parts );
   if ( word != directionWords[0] && word != directionWords[1] ) {
      throw RowError( "", "'" + word + "' is neither ingress nor egress" );
   }
   wish.direction = direction( word == directionWords[1] );
   const U16 vlan = vlanOf( row.part( 2, parts ) );
   const U16 inner = parts == 4 ? vlanOf( row.part( 3, 4 ) ) : U16( 0 );
   wish.key = Key( vlan, inner );
   wish.flow = row.word( "source", sourceWords, 0 ) == 1;
   wish.native = row.flag( "native", false );
   if ( wish.native ) {
      if ( wish.flow || inner || row.has( "mapped_vlan" ) ) {
         throw RowError( "native",
                         "a native VLAN has neither source flow nor an inner nor a mapped VLAN" );
      }
      wish.mapping = Mapping( vlan, 0 );
      return wish;
   }
   if ( !row.has( "mapped_vlan" ) ) {
      throw RowError( "mapped_vlan", "the VLAN that it is mapped to is missing" );
   }
   wish.mapping = Mapping( U16( row.number( "mapped_vlan", 1, 4094, 1 ) ),
                           U16( row.number( "mapped_inner", 1, 4094, 0 ) ) );
   return wish;
}

std::vector< ConfigTable >
VlanMappingFeature::tables() const {
   return { { "VLAN_MAPPING",
              "interface|ingress or egress|VLAN, or with |inner VLAN behind it",
              { { "mapped_vlan", "the VLAN that it becomes" },
                { "mapped_inner", "the inner VLAN that it becomes" },
                { "source", "cli or flow; cli" },
                { "native", "true: the VLAN is the native one, without the other fields; false" } },
              { R"("Ethernet8|ingress|30": {"mapped_vlan": "10"})",
                R"("Ethernet8|egress|20": {"native": "true"})" } } };
}

void
VlanMappingFeature::configure( ConfigReader & reader ) {
   std::map< std::pair< IntfId, Direction >, U16 > natives;
   auto wishes = std::make_shared< std::vector< Wish > >();
   reader.eachRow( "VLAN_MAPPING", [&]( const ConfigRow & row ) {
      const Wish wish = wishOf( reader, row );
      if ( wish.native ) {
         auto [held, fresh] =
               natives.try_emplace( { wish.intf, wish.direction }, wish.key.vlanId() );
         if ( !fresh ) {
            throw RowError( "native",
                            "the native VLAN is " + Kiv::toText( held->second ) + " already" );
         }
      }
      wishes->push_back( wish );
   } );
   reader.apply( [=, this] { become( *wishes ); } );
}

VlanMappingFeature::Name
VlanMappingFeature::nameOf( const Wish & wish ) {
   return { wish.intf, wish.direction, wish.key.vlanId(), wish.key.innerVlanId(),
            wish.flow, wish.native };
}

void
VlanMappingFeature::become( const std::vector< Wish > & wishes ) {
   Configured< Name, Mapping >::Said said;
   std::map< IntfId, bool > flowsOnly;
   for ( auto & wish : wishes ) {
      said.emplace_back( nameOf( wish ), wish.mapping );
      auto & flows = flowsOnly.try_emplace( wish.intf, true ).first->second;
      flows = flows && wish.flow;
   }
   flowsOnly_.become(
         { flowsOnly.begin(), flowsOnly.end() }, []( IntfId, bool ) {},
         [this]( IntfId intf, bool flows, const bool * former ) {
            modeIs( intf, flows, former );
         } );
   auto wishOf = []( const Name & name, const Mapping & mapping ) {
      const auto & [intf, direction, vlan, inner, flow, native] = name;
      return Wish{ intf, direction, { vlan, inner }, mapping, flow, native };
   };
   configured_.become(
         said,
         [&]( const Name & name, auto & ) {
            wishIs( wishOf( name, Mapping() ) );
            since_.erase( name );
            leave( std::get< IntfId >( name ) );
         },
         [&]( const Name & name, const Mapping & mapping, auto ) {
            wishIs( wishOf( name, mapping ) );
         } );
}

/** An interface that only flows are programmed for is in their mode. */
void
VlanMappingFeature::modeIs( IntfId intf, bool flowsOnly, const bool * former ) {
   if ( !flowsOnly ) {
      config_->switchIntfConfigIs( intf )->switchportModeIs( SwitchportMode::trunk );
   } else if ( former || !config_->switchIntfConfigHas( intf ) ) {
      config_->switchIntfConfigIs( intf )->switchportModeIs( SwitchportMode::flow );
   }
}

/** What is left of an interface when nobody says anything of it any more. */
void
VlanMappingFeature::leave( IntfId intf ) {
   auto flows = flow_->vlanXlateIntfConfig( intf );
   if ( flows && !flows->ingressVlanXlates() && !flows->egressVlanXlates() ) {
      flow_->vlanXlateIntfConfigDel( intf );
   }
   if ( !flowsOnly_.held().contains( intf ) && wishes( intf ).empty() ) {
      config_->switchIntfConfigDel( intf );
   }
}

void
VlanMappingFeature::wishIs( const Wish & wish ) {
   if ( wish.native ) {
      config_->switchIntfConfigIs( wish.intf )
            ->nativeVlanIs( wish.direction, VlanIdOrNone( wish.mapping.vlanId() ) );
      return;
   }
   Velto::Ptr< Bridging::VlanXlateIntfConfig > config =
         wish.flow ? flow_->vlanXlateIntfConfigIs( wish.intf )
                   : Velto::Ptr< Bridging::VlanXlateIntfConfig >(
                           config_->switchIntfConfigIs( wish.intf ) );
   wish.mapping.vlanId() ? config->vlanXlateIs( wish.direction, wish.key, wish.mapping )
                         : config->vlanXlateDel( wish.direction, wish.key );
}

IntfId
VlanMappingFeature::known( const Json & line ) const {
   const String name = fieldOf< String >( line, "intf" );
   const IntfId intf = agent_.names().typed( name );
   if ( !Ulnet::EthIntfId::isEthIntfId( intf ) &&
        !Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      throw Velto::RangeError( "intf is a port or a port-channel, not '" + name + "'" );
   }
   return intf;
}

VlanMappingFeature::Direction
VlanMappingFeature::directionOf( const Json & line ) {
   return direction( wordOf( line, "direction", directionWords ) );
}

std::function< void() >
VlanMappingFeature::parseXlate( const Json & line ) {
   Wish wish;
   wish.intf = known( line );
   wish.direction = directionOf( line );
   wish.key = Key( Bridging::VlanId( fieldOf< U32 >( line, "vlan" ) ), vlanOf( line, "inner" ) );
   wish.mapping =
         Mapping( VlanIdOrNone( fieldOf< U32 >( line, "mapped" ) ), vlanOf( line, "mappedInner" ) );
   wish.flow = wordOf( line, "source", sourceWords ) == 1;
   return [=, this] { wishIs( wish ); };
}

std::function< void() >
VlanMappingFeature::parseNative( const Json & line ) {
   Wish wish;
   wish.intf = known( line );
   wish.direction = directionOf( line );
   wish.native = true;
   const VlanIdOrNone vlan( fieldOf< U32 >( line, "vlan" ) );
   wish.key = Key( vlan, 0 );
   wish.mapping = Mapping( vlan, 0 );
   return [=, this] { wishIs( wish ); };
}

std::function< void() >
VlanMappingFeature::parseMode( const Json & line ) {
   const IntfId intf = known( line );
   const auto mode = Kiv::fromText< SwitchportMode >( fieldOf< String >( line, "mode" ) );
   return [=, this] { config_->switchIntfConfigIs( intf )->switchportModeIs( mode ); };
}

std::vector< EventKind >
VlanMappingFeature::eventKinds() {
   return { { "vlanMapping",
              R"({"time": 1, "event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress",)"
              R"( "vlan": 10, "mapped": 110, "source": "cli"})",
              [this]( const Json & line ) { return parseXlate( line ); } },
            { "nativeVlan",
              R"({"time": 1, "event": "nativeVlan", "intf": "Ethernet0", "direction": "egress",)"
              R"( "vlan": 7})",
              [this]( const Json & line ) { return parseNative( line ); } },
            { "switchportMode",
              R"({"time": 1, "event": "switchportMode", "intf": "Ethernet0", "mode": "flow"})",
              [this]( const Json & line ) { return parseMode( line ); } } };
}

FeatureKind
vlanMappingFeature() {
   return feature< VlanMappingFeature >( "vlan-mapping", VlanMappingFeature::options() );
}

} // namespace QonAgent
