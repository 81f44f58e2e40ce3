#pragma once
// The chip: finite tables, the hook classes between them and the library, and the parts that make
// these.
//
//    library -> ChipMac, ChipTopo, ChipVlan, ChipLag -> (a little later) -> Tables
//                                                                        -> done, to the library
//            -> ChipStorm (Storm.h), ChipVlanMapping (VlanMapping.h), ChipMirror (Mirror.h),
//               ChipAcl (Acl.h), ChipMulticast (Multicast.h), ChipTapAgg (TapAgg.h)
//                                                                       -> at once -> Tables
//    SmallChip: Tables, and a part for each feature, which reads them back
//
// Each hook class can be told to have one fault, as a developer might make it. The tables stand in
// the chip, which outlives the hook objects: they point to it without owning it.

#include "Acl.h"
#include "Mirror.h"
#include "Multicast.h"
#include "Storm.h"
#include "TapAgg.h"
#include "VlanMapping.h"

namespace Chip {

/** Hosts: answers every command by its transaction id. */
class ChipMac : public Qon::QonMacProgrammer {
 public:
   using Status = Qon::MacProgramStatus;
   using Type = Qon::IndirectAccessMacCmdType;

   ChipMac( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : QonMacProgrammer( wheel ), tables_( tables ), faults_( faults ), later_( wheel ) {}

   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      later_.add( [this, cmd, id = cmd->transactionId()] {
         if ( faults_.lostAnswer && cmd->type() == Type::removeHost &&
              !tables_.hosts.contains( cmd->key() ) ) {
            return;
         }
         handleCmdResponse( id, 0, cmd->addrOp() ? host( *cmd ) : flush( *cmd ) );
      } );
      return Status::macProgramInProgress;
   }
   Status writeToHwShadow( const Qon::MacCmdPtr & cmd ) override { return writeToHw( cmd ); }

 private:
   Status host( const Qon::IndirectAccessMacCmd & cmd ) {
      auto & hosts = tables_.hosts;
      if ( cmd.type() == Type::removeHost ) {
         hosts.erase( cmd.key() );
      } else if ( hosts.contains( cmd.key() ) || hosts.size() < Tables::hostRoom ) {
         hosts[cmd.key()] = { cmd.intf(), cmd.entryType() };
      } else {
         VELTO_ASSERT( !faults_.fullAborts );
         return Status::macProgramFull;
      }
      return Status::macProgramSuccess;
   }
   Status flush( const Qon::IndirectAccessMacCmd & cmd ) {
      std::erase_if( tables_.hosts, [&]( auto & host ) {
         return QonChip::flushTakes( cmd, host.first, host.second );
      } );
      return Status::macProgramSuccess;
   }

   Tables & tables_;
   Faults faults_;
   Later later_;
};

/** Topologies: reports done when nothing that was handed over for the topology is on its way. */
class ChipTopo : public Qon::TopoHelper {
 public:
   ChipTopo( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : tables_( tables ), faults_( faults ), later_( wheel ) {}

   U32 maxTopo() override { return Tables::topoRoom; }
   bool allocTopo( const String & name ) override {
      bool room =
            tables_.topologies.contains( name ) || tables_.topologies.size() < Tables::topoRoom;
      if ( room ) {
         tables_.topologies[name];
      }
      return room;
   }
   void freeTopo( const String & name ) override {
      tables_.topologies.erase( name );
      onTheirWay_.erase( name ); // what is on its way is for nobody, also when the name comes back
   }
   void setStpState( S32 id, const String & name, IntfId intf, PortState state ) override {
      names_[U32( id )] = name;
      if ( !tables_.topologies.contains( name ) ) {
         return; // there was no room for it
      }
      auto & onTheirWay = onTheirWay_[name];
      onTheirWay = onTheirWay ? onTheirWay : std::make_shared< U32 >( 0 );
      ++*onTheirWay;
      later_.add( [=, this, mine = onTheirWay] {
         if ( auto now = onTheirWay_.find( name );
              now == onTheirWay_.end() || now->second != mine ) {
            return;
         }
         tables_.topologies[name].ports[intf] = state;
         if ( --*mine == 0 ) {
            setStpStateDoneTopoName( name );
         }
      } );
      if ( faults_.earlyDone ) {
         setStpStateDoneTopoName( name );
      }
   }
   void addVlanToTopo( const String & name, U16 vlan ) override {
      if ( auto topo = tables_.topologies.find( name ); topo != tables_.topologies.end() ) {
         topo->second.vlans.insert( vlan );
      }
   }
   void delVlanFromTopo( const String & name, U16 vlan ) override {
      if ( auto topo = tables_.topologies.find( name ); topo != tables_.topologies.end() ) {
         topo->second.vlans.erase( vlan );
      }
   }
   void flushTopoPort( U32 topoId, IntfId intf ) override {
      auto topo = tables_.topologies.find( names_[topoId] );
      if ( topo == tables_.topologies.end() ) {
         return;
      }
      std::erase_if( tables_.hosts, [&, &vlans = topo->second.vlans]( auto & host ) {
         return host.second.intf == intf && vlans.contains( U16( host.first.key().vlan() ) );
      } );
   }

 private:
   Tables & tables_;
   Faults faults_;
   std::map< U32, String > names_;                         // of topologies
   std::map< String, std::shared_ptr< U32 > > onTheirWay_; // by topology, of this life of it
   Later later_;
};

/** VLANs: takes over the members of the moment, and reports the update done. */
class ChipVlan : public Qon::VlanHelper {
 public:
   ChipVlan( Tables & tables, Faults faults, const Qon::QonCommonSmData * acsd,
             Kiv::TimerWheel * wheel )
       : VlanHelper( "chip", acsd ), tables_( tables ), faults_( faults ), later_( wheel ) {}
   ~ChipVlan() override {
      if ( faults_.tidyDestructor ) {
         tables_.vlans.clear();
      }
   }

   void doCreateHwVlan( Bridging::VlanId ) override {} // the table has room for all of them
   void doUpdateVlan( Bridging::VlanId vlan ) override {
      QonChip::HeldVlan members;
      forEachHwPort( vlan, [&]( IntfId intf, Qon::VlanMembership how ) { members[intf] = how; } );
      later_.add( [=, this] {
         members.empty() ? void( tables_.vlans.erase( vlan ) )
                         : void( tables_.vlans[vlan] = members );
         updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
      } );
   }
   void doUpdateVlanFid( Bridging::VlanId vlan, U32 fid ) override { tables_.fids[vlan] = fid; }
   void verify() override {}

 private:
   Tables & tables_;
   Faults faults_;
   Later later_;
};

/** Groups: brings the table to the configuration whenever that has changed, what goes first. */
class ChipLag : public Velto::Node {
 public:
   using Config = Hardware::Lag::Config;
   using Result = Hardware::Lag::Result;

   ChipLag( Tables & tables, Faults faults, Ptr< const Config > config,
            Ptr< Hardware::Lag::Status > status, Kiv::TimerWheel * wheel )
       : tables_( tables ), faults_( faults ), config_( config ), status_( status ),
         later_( wheel ) {
      hasNotificationActiveIs( true );
      configWatch_.attach( this, config_.ptr() );
      for ( auto && [lag, group] : config_->lagIteratorConst() ) {
         handleLag( lag );
      }
   }

   void handleLag( const IntfId & lag ) {
      memberWatch_.erase( lag );
      if ( auto group = config_->lag( lag ) ) {
         memberWatch_[lag] = std::make_unique< MemberWatch >();
         memberWatch_[lag]->attach( this, group );
      }
      handleMember( lag );
   }
   void handleMember( const IntfId & ) {
      if ( !waits_ ) {
         waits_ = true;
         later_.add( [this] { follow(); } );
      }
   }

 private:
   using MemberWatch =
         Kiv::Watch< Hardware::Lag::LagConfig::memberAttr, ChipLag, &ChipLag::handleMember >;

   void follow() {
      waits_ = false;
      removeUnwanted();
      for ( auto && [lag, group] : config_->lagIteratorConst() ) {
         auto status = status_->lagIs( lag );
         status->indexIs( group->index() );
         bool room = tables_.lags.contains( lag ) || tables_.lags.size() < Tables::lagRoom;
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            Result result = room ? enter( tables_.lags[lag], port, member ) : Result::noLag;
            status->resultIs( room ? Result::success : Result::noLag );
            auto held = tables_.lags[lag].find( port );
            status->memberIs(
                  port, held == tables_.lags[lag].end()
                              ? Hardware::Lag::MemberStatus( result, false, false, false )
                              : Hardware::Lag::MemberStatus( result, held->second.collecting(),
                                                             held->second.distributing(),
                                                             held->second.shared() ) );
         }
         if ( tables_.lags[lag].empty() ) {
            tables_.lags.erase( lag );
         }
      }
   }
   void removeUnwanted() {
      auto wanted = [this]( IntfId lag, IntfId port ) {
         auto group = config_->lag( lag );
         return group && group->memberHas( port );
      };
      for ( auto & [lag, members] : tables_.lags ) {
         std::erase_if( members, [&]( auto & member ) { return !wanted( lag, member.first ); } );
      }
      std::erase_if( tables_.lags, []( auto & group ) { return group.second.empty(); } );
      std::vector< std::pair< IntfId, IntfId > > gone;
      for ( auto && [lag, status] : status_->lagIteratorConst() ) {
         for ( auto && [port, member] : status->memberIteratorConst() ) {
            if ( !wanted( lag, port ) ) {
               gone.emplace_back( lag, port );
            }
         }
      }
      for ( auto & [lag, port] : gone ) {
         status_->lag( lag )->memberDel( port );
         if ( !config_->lagHas( lag ) && status_->lag( lag )->members() == 0 ) {
            status_->lagDel( lag );
         }
      }
   }
   Result enter( QonChip::HeldGroup & members, IntfId port, const Hardware::Lag::Member & member ) {
      bool known = members.contains( port );
      if ( !known && members.size() == Tables::memberRoom ) {
         return Result::noMember;
      }
      if ( !known || !faults_.staleFlags ) {
         members[port] = member;
      }
      return Result::success;
   }

   Tables & tables_;
   Faults faults_;
   Ptr< const Config > config_;
   Ptr< Hardware::Lag::Status > status_;
   bool waits_ = false;
   Later later_;
   std::map< IntfId, std::unique_ptr< MemberWatch > > memberWatch_;
   Kiv::Watch< Config::lagAttr, ChipLag, &ChipLag::handleLag > configWatch_;
};

/** The chip as an agent and the kit see it; made of these hook classes or of others. */
template< class Mac = ChipMac, class Topo = ChipTopo, class Vlan = ChipVlan, class Lag = ChipLag,
          class Mirror = ChipMirror, class Acl = ChipAcl >
class SmallChip : public QonChip::Chip,
                  QonChip::MacPart,
                  QonChip::TopologyPart,
                  QonChip::VlanPart,
                  QonChip::LagPart,
                  QonChip::StormControlPart,
                  QonChip::VlanMappingPart,
                  QonChip::MirrorPart,
                  QonChip::MulticastPart,
                  QonChip::TapAggPart,
                  QonChip::AclPart {
 public:
   explicit SmallChip( Kiv::TaskScheduler & scheduler, Faults faults = {} )
       : faults_( faults ), wheel_( scheduler.timerWheel() ) {
      add< QonChip::MacPart >( *this );
      add< QonChip::TopologyPart >( *this );
      add< QonChip::VlanPart >( *this );
      add< QonChip::VlanMappingPart >( *this );
      add< QonChip::LagPart >( *this );
      add< QonChip::StormControlPart >( *this );
      add< QonChip::MirrorPart >( *this );
      add< QonChip::MulticastPart >( *this );
      add< QonChip::TapAggPart >( *this );
      add< QonChip::AclPart >( *this );
   }
   String name() const override { return "small"; }

 private:
   Ptr< Qon::QonMacProgrammer > makeProgrammer() override {
      return Velto::make< Mac >( tables_, faults_, wheel_ );
   }
   std::optional< QonChip::HeldHosts > hosts() const override { return tables_.hosts; }
   U32 hostsToFill() const override { return 2 * Tables::hostRoom; }

   Ptr< Qon::TopoHelper > makeTopoHelper() override {
      return Velto::make< Topo >( tables_, faults_, wheel_ );
   }
   std::optional< QonChip::HeldTopologies > topologies() const override {
      return tables_.topologies;
   }
   bool flushesHosts() const override { return true; }

   Ptr< Qon::VlanHelper > makeVlanHelper( const Ptr< Qon::QonCommonSmData > & acsd ) override {
      return Velto::make< Vlan >( tables_, faults_, acsd.ptr(), wheel_ );
   }
   std::optional< QonChip::HeldVlans > vlans() const override { return tables_.vlans; }
   std::optional< std::map< U16, U32 > > fids() const override { return tables_.fids; }

   Ptr< Qon::VlanMappingSm >
   makeVlanMappingSm( Qon::VlanMappingSm::Inputs inputs,
                      const QonChip::VlanMappingPart::Statuses & ) override {
      return Qon::smIs< ChipVlanMapping >( std::move( inputs ), tables_, faults_ );
   }
   std::optional< QonChip::HeldTranslations > translations() const override {
      return tables_.translations;
   }

   Ptr< Velto::Node > makeProgrammer( const Ptr< const Hardware::Lag::Config > & config,
                                      const Ptr< Hardware::Lag::Status > & status ) override {
      return Velto::make< Lag >( tables_, faults_, config, status, wheel_ );
   }
   std::optional< QonChip::HeldGroups > groups() const override { return tables_.lags; }

   Ptr< Qon::StormControlSmHelper >
   makeStormControlHelper( const Ptr< Qon::QonCommonSmData > & ) override {
      return Velto::make< ChipStorm >( tables_, faults_ );
   }
   /** It counts nothing. */
   Ptr< Velto::Node >
   makeDropCounter( const Ptr< Qon::StormControl::DropSliceDir > & slices ) override {
      return slices;
   }
   std::optional< QonChip::HeldStormControl > stormControl() const override {
      return tables_.storm;
   }
   Ptr< Qon::MirroringSmHelper >
   makeMirroringHelper( const Ptr< Mirroring::HwCapability > & capability,
                        const Ptr< Mirroring::HwStatus > & status ) override {
      return Velto::make< Mirror >( tables_, faults_, capability, status );
   }
   std::optional< QonChip::HeldMirrors > mirrors() const override { return tables_.mirrors; }
   Ptr< Qon::TapAggHelper > makeTapAggHelper() override {
      return Velto::make< ChipTapAgg >( tables_, faults_ );
   }
   std::optional< QonChip::HeldTapAgg > tapAgg() const override { return tables_.tapAgg; }

   Ptr< Qon::MulticastDataFactory > makeMulticastDataFactory() override {
      return Velto::make< ChipMulticast >( tables_, faults_ );
   }
   Ptr< Qon::MulticastCopyUpdater > makeMulticastCopyUpdater(
         const Ptr< const Bridging::Multicast::CopyRequestConfig > & config ) override {
      return Qon::smIs< ChipCopies >( tables_, config );
   }
   std::optional< QonChip::HeldMulticast > multicast() const override { return tables_.multicast; }
   U32 multicastGroupsToFill() const override { return U32( Tables::multicastRoom ); }

   Ptr< QonHelper::AclHelper > makeAclHelper() override {
      return Velto::make< Acl >( tables_, faults_ );
   }
   std::optional< QonChip::HeldAcls > acls() const override { return tables_.acls; }

   Faults faults_;
   Kiv::TimerWheel * wheel_;
   Tables tables_;
};

} // namespace Chip
