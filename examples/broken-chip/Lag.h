#pragma once
// Groups of the chip: a table, and who follows their configuration.

#include "Tables.h"

namespace Chip {

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

} // namespace Chip
