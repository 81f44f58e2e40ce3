#include "Qon/include/acl/AclTypes.h"

#include "platform/Kiv/Describe.h"
#include "platform/Velto/Assert.h"

KIV_DEFINE( Qon::AclData )
KIV_DEFINE( Qon::AclDataStatus )

namespace Qon {

bool
insufficientResources( AclCreateError error ) {
   switch ( error ) {
   case AclCreateError::hwResourceFull:
   case AclCreateError::l4PortRanges:
   case AclCreateError::udfResources:
   case AclCreateError::aclLimit:
   case AclCreateError::computationFailed:
      return true;
   default:
      return false;
   }
}

String
aclErrorText( AclCreateError error, const String & unit, const String & aclName ) {
   // fixed texts
   switch ( error ) {
   case AclCreateError::hwResourceFull:
      return "Out of TCAM entries on " + unit;
   case AclCreateError::unsupportedTcamFeature:
      return "Unsupported feature in TCAM on " + unit;
   case AclCreateError::l4PortRanges:
      return "Too many L4 port ranges";
   case AclCreateError::unsupportedAction:
      return "Unsupported Acl action";
   case AclCreateError::unsupportedRule:
      return "Unsupported Acl rule, " + aclName;
   case AclCreateError::udfResources:
      return "Insufficient Hw resources to program UDFs on " + unit;
   case AclCreateError::aclLimit:
      return "Too many ACLs";
   case AclCreateError::computationFailed:
      return "Insufficient HW resources on " + unit;
   default:
      return error > AclCreateError::pending ? "Unknown error" : "";
   }
}

AclRuleSet::AclRuleSet( std::vector< AclRule > rules ) : rules_( std::move( rules ) ) {
   for ( auto & rule : rules_ ) {
      logs_ = logs_ || rule.rule.log();
      if ( !rule.rule.mirrorSession().empty() ) {
         mirrorSessions_.emplace( rule.rule.mirrorSession() );
      }
   }
}

AclVlanIdOrNone::AclVlanIdOrNone( U32 value ) : value_( U16( value ) ) {
   if ( value > max_ ) {
      throw Velto::RangeError( "Qon::AclVlanIdOrNone::value > _max not allowed" ); // fixed text
   }
}

AclVlanIdOrNone::AclVlanIdOrNone( const String & text )
    : AclVlanIdOrNone( text == "None" ? 0 : Kiv::fromText< U32 >( text ) ) {}

void
IntfPairKey::check() const {
   using Lag = Ulnet::PortChannelIntfId;
   auto require = []( bool holds, const char * what ) {
      if ( !holds ) [[unlikely]] {
         Velto::assertFail( what, "QonAclSm", __LINE__, "void Qon::IntfPairKey::check() const" );
      }
   };
   // fixed texts
   require( intfId_ || lagIntf_, "Both intf and lag shouldn't be null together" );
   require( !Lag::isPortChannelIntfId( intfId_ ), "intfPair.intfId shouldn't be a lag" );
   require( !lagIntf_ || Lag::isPortChannelIntfId( lagIntf_ ), "intfPair.lagIntf should be a LAG" );
   require( !lagIntf_ || !( Ulnet::VlanIntfId::isVlanIntfId( intfId_ ) ||
                            Ulnet::SubIntfId::isSubIntfId( intfId_ ) ||
                            Ulnet::TunnelIntfId::isTunnelIntfId( intfId_ ) ),
            "When intf is an SVI or SubIntf or Tunnel-Intf, lag should be null" );
}

String
AclOperation::stringValue() const {
   return Kiv::toText( type ) + " " + aclName + " " + key.vlan().stringValue() + " " +
          Kiv::toText( key.direction() ) + " " + key.group() + " " + Kiv::toText( aclNumber ) +
          ( rules ? " rules " + Kiv::toText( rules->rules().size() ) : String() );
}

AclNumbers::AclNumbers( U32 start ) : start_( start ) {
   free_.reserve( aclNumbersPerDirection );
   for ( U32 n = aclNumbersPerDirection; n > 0; --n ) {
      free_.push_back( start + n - 1 );
   }
}

U32
AclNumbers::take() {
   VELTO_ASSERT( !free_.empty() );
   const U32 number = free_.back();
   free_.pop_back();
   return number;
}

void
AclNumbers::push( U32 number ) {
   VELTO_ASSERT( number >= start_ && number < start_ + aclNumbersPerDirection );
   free_.push_back( number );
}

} // namespace Qon
