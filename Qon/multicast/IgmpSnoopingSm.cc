#include "Qon/include/multicast/IgmpSnoopingSm.h"

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using Bridging::VlanId;
using Ulnet::EthAddr;

// --- The groups of one VLAN ------------------------------------------------------------------------

IgmpSnoopingVlanSm::IgmpSnoopingVlanSm( Velto::Ptr< MulticastHelper > helper,
                                        Velto::Ptr< const Vlan > vlan )
    : helper_( std::move( helper ) ), vlan_( std::move( vlan ) ) {}

void
IgmpSnoopingVlanSm::kivDoZombieReactors() {
   groups_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
IgmpSnoopingVlanSm::handleInitialized() {
   if ( !initialized() ) {
      groups_.rest();
      return;
   }
   groupWatch_.attach( this, vlan_.ptr() );
   groups_.reviewAll( vlan_->ethGroupIteratorConst(), [this]( const EthAddr & addr ) {
      return Velto::Ptr< const Group >( vlan_->ethGroup( addr ) );
   } );
}

void
IgmpSnoopingVlanSm::handleEthGroup( const EthAddr & addr ) {
   groups_.review( addr, vlan_->ethGroup( addr ) );
}

Velto::Ptr< IgmpSnoopingEthGroupSm >
IgmpSnoopingVlanSm::makeGroup( const EthAddr &, const Velto::Ptr< const Group > & group ) {
   return IgmpSnoopingEthGroupSmIs( helper_, vlan_, group );
}

void
IgmpSnoopingVlanSm::cleanUpGroup( const EthAddr &, IgmpSnoopingEthGroupSm * sm ) {
   sm->prepareToDie();
}

void
IgmpSnoopingVlanSm::prepareToDie() {
   groupWatch_.attach( this, nullptr );
   groups_.removeAll();
}

void
IgmpSnoopingVlanSm::verify() {
   groups_.forEach( []( const EthAddr &, IgmpSnoopingEthGroupSm & sm ) { sm.handleVerify(); } );
}

// --- All groups ------------------------------------------------------------------------------------

IgmpSnoopingSm::IgmpSnoopingSm( Inputs inputs )
    : in_( std::move( inputs ) ), reactor_( MulticastReactorSmIs( in_.helper ) ) {}

Velto::Ptr< IgmpSnoopingSm >
IgmpSnoopingSmIs( IgmpSnoopingSm::Inputs inputs ) {
   return smIs< IgmpSnoopingSm >( std::move( inputs ) );
}

void
IgmpSnoopingSm::kivDoZombieReactors() {
   reactor_->kivDoZombieReactors();
   vlans_.kivDoZombieReactors();
   staticGroups_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
IgmpSnoopingSm::handleInitialized() {
   if ( !initialized() ) {
      reactor_->initializedIs( false );
      vlans_.rest();
      staticGroups_.rest();
      return;
   }
   const Velto::Hold alive( this );
   check_.attach< &IgmpSnoopingSm::handleVerify >( helper()->acsd()->verifyData(),
                                                   "QonMulticastHelper", this );
   vlanWatch_.attach( this, in_.status.ptr() );
   staticWatch_.attach( this, in_.staticConfig.ptr() );
   Velto::FirstError error;
   error.run( [&] { reactor_->initializedIs( true ); } );
   error.run( [&] {
      vlans_.reviewAll( in_.status->vlanStatusIteratorConst(), [this]( const VlanId & vlan ) {
         return Velto::Ptr< const Vlan >( in_.status->vlanStatus( vlan ) );
      } );
   } );
   error.run( [&] {
      staticGroups_.reviewAll(
            in_.staticConfig->groupIteratorConst(),
            [this]( const McastAddr & key ) { return staticGroupWanted( key ); } );
   } );
   helper()->deleteOrphans();
   error.pass();
}

void
IgmpSnoopingSm::handleVlanStatus( const VlanId & vlan ) {
   vlans_.review( vlan, in_.status->vlanStatus( vlan ) );
}

void
IgmpSnoopingSm::handleStaticGroup( const McastAddr & key ) {
   staticGroups_.review( key, staticGroupWanted( key ) );
}

/** Null for a VLAN that is none. */
Velto::Ptr< const IgmpSnoopingSm::StaticGroup >
IgmpSnoopingSm::staticGroupWanted( const McastAddr & key ) const {
   constexpr U32 lastVlan = 4094;
   if ( key.vlanId() < 1 || key.vlanId() > lastVlan ) {
      QON_TRACE( multicastFacility, 1, key, " is in no VLAN" );
      return nullptr;
   }
   return in_.staticConfig->group( key );
}

Velto::Ptr< IgmpSnoopingVlanSm >
IgmpSnoopingSm::makeVlan( const VlanId &, const Velto::Ptr< const Vlan > & status ) {
   return smIs< IgmpSnoopingVlanSm >( in_.helper, status );
}

void
IgmpSnoopingSm::cleanUpVlan( const VlanId &, IgmpSnoopingVlanSm * sm ) {
   sm->prepareToDie();
}

Velto::Ptr< MulticastAddrSimpleSm >
IgmpSnoopingSm::makeStaticGroup( const McastAddr &,
                                 const Velto::Ptr< const StaticGroup > & group ) {
   return MulticastAddrSimpleSmIs( in_.helper, group );
}

void
IgmpSnoopingSm::cleanUpStaticGroup( const McastAddr &, MulticastAddrSimpleSm * sm ) {
   sm->prepareToDie();
}

void
IgmpSnoopingSm::handleVerify() {
   vlans_.forEach( []( const VlanId &, IgmpSnoopingVlanSm & sm ) { sm.verify(); } );
   staticGroups_.forEach(
         []( const McastAddr &, MulticastAddrSimpleSm & sm ) { sm.handleVerify(); } );
}

/** Whether there is a state machine for each group, and no other; and what the helper says. */
String
IgmpSnoopingSm::checkInvariants() const {
   U32 groups = 0;
   for ( auto && [vlan, status] : in_.status->vlanStatusIteratorConst() ) {
      const auto sm = vlans_.sm( vlan );
      if ( initialized() && ( !sm || sm->groups() != status->ethGroups() ) ) {
         return "VLAN " + vlan.stringValue() + " has groups without state machines, or too many";
      }
   }
   for ( auto && [key, group] : in_.staticConfig->groupIteratorConst() ) {
      groups += staticGroupWanted( key ) != nullptr;
   }
   if ( initialized() &&
        ( vlans_.size() != in_.status->vlanStatuss() || staticGroups_.size() != groups ) ) {
      return "there are state machines for groups that nobody wants, or too few";
   }
   return helper()->checkInvariants();
}

void
IgmpSnoopingSm::doCleanup() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   if ( initialized() ) {
      error.run( [&] { initializedIs( false ); } );
   }
   error.run( [&] { vlans_.removeAll(); } );
   error.run( [&] { staticGroups_.removeAll(); } );
   error.run( [&] { helper()->doCleanup(); } );
   error.pass();
}

} // namespace Qon
