// What the console shows of VLAN mapping.

#include <algorithm>
#include <set>
#include <string_view>

#include "agent/features/Arguments.h"
#include "agent/features/VlanMappingFeature.h"

namespace QonAgent {

using Ulnet::IntfId;

namespace {

using Outcome = Qon::VlanMappingSm::Outcome;
using Qon::QonVlanMappingSource;
using Source2 = Qon::VlanMappingConfigSource;
using Status = QonTypes::TableAddStatus;

/** "10", or "10 inner 20". */
String
text( U16 vlan, U16 inner ) {
   return Kiv::toText( vlan ) +
          ( inner && inner != Qon::nativeInnerVlan ? " inner " + Kiv::toText( inner ) : "" );
}

const char *
text( Status status ) {
   switch ( status ) {
   case Status::success:
      return "programmed";
   case Status::notNow:
      return "cannot be programmed now";
   case Status::full:
      return "table full";
   case Status::failed:
      return "refused by the chip";
   case Status::handedOver:
      return "chip not done";
   }
   return "";
}

/** The owner's name follows. */
constexpr char inUse[] = "in use by";

} // namespace

std::vector< IntfId >
VlanMappingFeature::wishers() const {
   std::set< IntfId > all;
   for ( auto && [intf, config] : config_->switchIntfConfigIteratorConst() ) {
      all.insert( intf );
   }
   for ( auto && [intf, config] : flow_->vlanXlateIntfConfigIteratorConst() ) {
      all.insert( intf );
   }
   return { all.begin(), all.end() };
}

std::vector< VlanMappingFeature::Wish >
VlanMappingFeature::wishes( IntfId intf ) const {
   std::vector< Wish > all;
   auto take = [&]( const Bridging::VlanXlateIntfConfig & config, bool flow ) {
      for ( Direction d : Bridging::vlanMappingDirections ) {
         for ( auto && [key, mapping] : config.vlanXlateIteratorConst( d ) ) {
            all.push_back( { intf, d, key, mapping, flow, false } );
         }
      }
   };
   if ( auto config = config_->switchIntfConfig( intf ) ) {
      take( *config, false );
      for ( Direction d : Bridging::vlanMappingDirections ) {
         if ( const auto vlan = config->nativeVlan( d ); !vlan.isNone() ) {
            all.push_back( { intf, d, { vlan.value(), 0 }, { vlan.value(), 0 }, false, true } );
         }
      }
   }
   if ( auto config = flow_->vlanXlateIntfConfig( intf ) ) {
      take( *config, true );
   }
   return all;
}

std::vector< VlanMappingFeature::Wish >
VlanMappingFeature::wishes( IntfId intf, Direction d, Key key ) const {
   std::vector< Wish > all;
   const bool native = Qon::isNative( key );
   if ( auto config = config_->switchIntfConfig( intf ) ) {
      if ( !native && config->vlanXlateHas( d, key ) ) {
         all.push_back( { intf, d, key, config->vlanXlate( d, key ), false, false } );
      }
      const U16 vlan = config->nativeVlan( d ).value();
      if ( vlan == key.vlanId() && ( native || ( second_ && !key.innerVlanId() ) ) ) {
         all.push_back( { intf, d, { vlan, 0 }, { vlan, 0 }, false, true } );
      }
   }
   auto config = flow_->vlanXlateIntfConfig( intf );
   if ( config && !native && config->vlanXlateHas( d, key ) ) {
      all.push_back( { intf, d, key, config->vlanXlate( d, key ), true, false } );
   }
   return all;
}

bool
VlanMappingFeature::Fate::operator==( const Fate & other ) const {
   return std::string_view( owner ) == other.owner && std::string_view( why ) == other.why;
}

void
VlanMappingFeature::outcomeHeard( IntfId intf, Direction d, Key key ) {
   const Key plain( key.vlanId(), Qon::isNative( key ) ? U16( 0 ) : key.innerVlanId() );
   const auto wanted = wishes( intf, d, key );
   auto among = [&]( const Name & name ) {
      return std::any_of( wanted.begin(), wanted.end(),
                          [&]( const Wish & wish ) { return nameOf( wish ) == name; } );
   };
   for ( auto [flow, native] : { std::pair( false, false ), { false, true }, { true, false } } ) {
      const Name name( intf, d, plain.vlanId(), plain.innerVlanId(), flow, native );
      if ( ( second_ || native == Qon::isNative( key ) ) && !among( name ) ) {
         since_.erase( name );
      }
   }
   for ( const Wish & wish : wanted ) {
      const Fate now = fate( wish );
      auto [known, fresh] = since_.try_emplace( nameOf( wish ) );
      Since & since = known->second;
      if ( fresh || !( since.fate == now ) || !( since.mapping == wish.mapping ) ) {
         since = { now, wish.mapping, Kiv::now() };
      }
   }
}

VlanMappingFeature::Fate
VlanMappingFeature::firstFate( const Wish & wish ) const {
   const Key key = wish.native ? Key( wish.key.vlanId(), Qon::nativeInnerVlan ) : wish.key;
   const auto source =
         wish.flow ? QonVlanMappingSource::Steerline : QonVlanMappingSource::BriselCli;
   const auto other = wish.flow ? QonVlanMappingSource::BriselCli : QonVlanMappingSource::Steerline;
   switch ( first_->outcome( wish.intf, wish.direction, key, source ) ) {
   case Outcome::unwanted:
      return { "", "out of range" };
   case Outcome::conflict:
      return { shownSource( other ), inUse };
   case Outcome::givenUp:
      return { "", "table full or refused" };
   case Outcome::resting:
      return { shownSource( source ), "no port to be programmed on" };
   case Outcome::waiting:
      return { shownSource( source ), text( Status::notNow ) };
   case Outcome::handedOver:
      return { shownSource( source ), text( Status::handedOver ) };
   case Outcome::programmed:
      return { shownSource( source ), "" };
   }
   return {};
}

VlanMappingFeature::Fate
VlanMappingFeature::secondFate( const Wish & wish ) const {
   const auto source = wish.flow     ? Source2::flow
                       : wish.native ? Source2::nativeVlan
                                     : Source2::bridging;
   const auto key = Qon::QonVlanMappingKey::of( wish.direction, wish.key );
   auto merged = merged_->intfVlanMappingConfig( wish.intf );
   const auto config = config_->switchIntfConfig( wish.intf );
   if ( !config ||
        config->switchportMode() != Qon::vlanMappingConfigSourceActiveSwitchportMode( source ) ) {
      return { "", "not in this mode of the interface" };
   }
   if ( !merged || !merged->vlanMappingConfigHas( key ) ) {
      return { "", "not merged" };
   }
   const auto owner = merged->vlanMappingConfig( key ).source();
   if ( owner != source ) {
      return { shownSource( owner ), inUse };
   }
   const auto result = second_->platformStatusSm()->resultOf( wish.intf, key );
   return { shownSource( owner ), !result                      ? "no port to be programmed on"
                                  : *result == Status::success ? ""
                                                               : text( *result ) };
}

VlanMappingFeature::Fate
VlanMappingFeature::fate( const Wish & wish ) const {
   return first_ ? firstFate( wish ) : secondFate( wish );
}

Row
VlanMappingFeature::row( const Wish & wish ) const {
   const Fate now = fate( wish );
   const String why = now.why + ( now.why == inUse ? " " + String( now.owner ) : String() );
   Row row = { { "interface", agent_.names().spelling( wish.intf ) },
               { "direction", Kiv::toText( wish.direction ) },
               { "vlan", text( wish.key.vlanId(), wish.key.innerVlanId() ) },
               { "mapped", text( wish.mapping.vlanId(), wish.mapping.innerVlanId() ) },
               { "native", yesNo( wish.native ) },
               { "source", wish.flow ? "flow" : "cli" },
               { "owner", now.owner },
               { "programmed", yesNo( why.empty() ) },
               { "reason", why } };
   auto since = since_.find( nameOf( wish ) );
   if ( since != since_.end() ) {
      row.set( "since", Kiv::now() - since->second.time );
   }
   if ( first_ && why == text( Status::notNow ) && !first_->clock()->idle() ) {
      row.set( "retry", first_->clock()->time() - Kiv::now() );
   }
   return row;
}

Rows
VlanMappingFeature::mappings( Arguments arguments ) const {
   if ( !part_ || ( !first_ && !follower_ ) ) {
      notServed( agent_, "VLAN mapping" );
   }
   const auto intfs =
         arguments.has( 0 ) ? std::vector< IntfId >( { arguments.intf( 0 ) } ) : wishers();
   for ( IntfId intf : intfs ) {
      for ( auto & wish : wishes( intf ) ) {
         co_yield row( wish );
      }
      co_yield Pause();
   }
}

Rows
VlanMappingFeature::hardware( Arguments arguments ) const {
   const auto held = part_ ? part_->translations() : std::nullopt;
   if ( !held ) {
      notServed( agent_, "the reading of VLAN mappings" );
   }
   for ( auto & entry : *held ) {
      if ( !arguments.has( 0 ) || entry.first.second.portId() == arguments.intf( 0 ) ) {
         co_yield heldRow( entry.first, entry.second );
      }
   }
}

Row
VlanMappingFeature::heldRow( const QonChip::HeldTranslationKey & name,
                             const Mapping & mapping ) const {
   auto & [d, key] = name;
   return { { "interface", agent_.names().spelling( key.portId() ) },
            { "direction", Kiv::toText( d ) },
            { "vlan", text( key.vlanId(), key.innerVlanId() ) },
            { "mapped", text( mapping.vlanId(), mapping.innerVlanId() ) },
            { "native", yesNo( Qon::isNative( key.key() ) ) } };
}

/** The chip itself tries again in the second generation. */
std::vector< Counter >
VlanMappingFeature::counters() const {
   if ( !first_ ) {
      return {};
   }
   return { { "interfaces to be tried again", first_->unprogrammedIntfLists() },
            { "retries", first_->retries() } };
}

std::vector< ShowCommand >
VlanMappingFeature::showCommands() {
   const Column intf = { "interface", "Interface" }, dir = { "direction", "Direction" },
                vlan = { "vlan", "VLAN" }, mapped = { "mapped", "Mapped to" },
                native = { "native", "Native" };
   const Argument only =
         intfArgument( "INTERFACE", "interface", []( IntfId intf ) { return bool( intf ); } );
   return { { "vlan-mapping",
              "VLAN translations as they are wanted, who owns each, and what became of it",
              { only },
              { intf,
                dir,
                vlan,
                mapped,
                native,
                { "source", "Wanted by" },
                { "owner", "Owner" },
                { "programmed", "Programmed" },
                { "reason", "Why not" },
                { "since", "Since s", true },
                { "retry", "Retry in s", true } },
              [this]( auto & arguments ) { return mappings( arguments ); } },
            { "hw vlan-mapping",
              "the translations of each port in the chip",
              { only },
              { intf, dir, vlan, mapped, native },
              [this]( auto & arguments ) { return hardware( arguments ); } } };
}

} // namespace QonAgent
