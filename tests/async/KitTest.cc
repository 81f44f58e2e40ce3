// The worked example in front of the conformance kit: a key is a prefix, a value a version of its route.

#include "chip/AsyncPart.h"
#include "conformance/Conformance.h"
#include "platform/Kiv/Listener.h"
#include "tests/async/SoftTcam.h"
#include "tests/harness/World.h"

namespace {

using QonChip::AsyncAnswers;
using QonChip::AsyncConclusion;
using QonChip::AsyncOperation;
using SoftChip::Route;
using SoftChip::TcamOperation;
using Velto::Ptr;
using Velto::String;
using End = AsyncConclusion::End;

Ulnet::IpGenPrefix
prefixOf( const String & key ) {
   return Ulnet::IpGenPrefix( "10.0." + key.substr( key.find_first_of( "0123456789" ) ) + ".0/24" );
}

class TcamChip : public QonChip::Chip, QonChip::AsyncPart {
 public:
   explicit TcamChip( Kiv::TaskScheduler & ) { add< QonChip::AsyncPart >( *this ); }
   String name() const override { return "tcam"; }

 private:
   using Acks = Qon::Ack::QonRouteAckSmConfig;

   Ptr< Qon::QonAsyncBaseHelper > makeAsyncHelper() override {
      return Velto::make< SoftChip::SoftTcamHelper >();
   }
   Ptr< Qon::QonAsyncBaseSm > makeAsyncSm( const Ptr< Qon::QonCommonSmData > & acsd,
                                           const Ptr< Qon::QonAsyncBaseHelper > & helper,
                                           QonChip::AsyncHeard heard ) override {
      helper_ = static_cast< SoftChip::SoftTcamHelper * >( helper.ptr() );
      tcam_ = SoftChip::SoftTcamIs( helper_, 100 );
      auto acks = Velto::make< Acks >( 0, Ulnet::AddressFamily::ipv4 );
      passed_.attach( acks.ptr(), [=, this, acks = acks.ptr()] {
         const Route & route = acks->nextRouteToPassToPd();
         const String error = helper_->asyncOperationResult().error();
         conclude( heard, route, route.nack() ? End::failed : End::held,
                   route.nack() ? error : String() );
      } );
      skipped_.attach( acks.ptr(), [=, this, acks = acks.ptr()] {
         conclude( heard, acks->skippedPdRoute(), End::replaced, "" );
      } );
      asyncAnswersAre( AsyncAnswers::later );
      return SoftChip::SoftTcamSmIs( acsd, tcam_, helper_, acks );
   }
   void conclude( const QonChip::AsyncHeard & heard, const Route & route, End end,
                  const String & error ) {
      auto request = requests_.extract( U64( route.qonVersionId().value() ) ).mapped();
      heard( { request.key, request.value, end, error } );
   }
   void asyncRequest( Qon::QonAsyncBaseSm & sm, const String & key, U32 value ) override {
      Route route;
      route.prefixIs( prefixOf( key ) );
      route.qonVersionIdIs( Qon::QonPdVersionId( ++versions_ ) );
      route.removeIs( value == 0 );
      requests_[versions_] = all_[versions_] = { key, value };
      static_cast< SoftChip::SoftTcamSm & >( sm ).routeIs( route );
   }
   std::optional< QonChip::HeldEntries > asyncEntries() const override {
      QonChip::HeldEntries entries;
      for ( auto & [version, request] : all_ ) {
         const auto prefix = prefixOf( request.key );
         if ( tcam_->has( prefix ) && tcam_->version( prefix ).value() == version ) {
            entries[request.key] = request.value;
         }
      }
      return entries;
   }
   bool asyncAnswersAre( AsyncAnswers answers ) override {
      operations_.clear();
      tcam_->latencyIs( answers == AsyncAnswers::later    ? 0.01
                        : answers == AsyncAnswers::inside ? 0
                                                          : Kiv::never );
      return true;
   }
   const std::vector< TcamOperation > & handedOver() const {
      for ( auto & operation : tcam_->pending() ) {
         if ( operations_.empty() || operation.priority < operations_.back().priority ) {
            operations_.push_back( operation );
         }
      }
      return operations_;
   }
   std::vector< AsyncOperation > asyncOperations() const override {
      std::vector< AsyncOperation > all;
      for ( auto & operation : handedOver() ) {
         const auto & request = all_.at( U64( operation.route.qonVersionId().value() ) );
         all.push_back( { request.key, request.value, operation.priority, operation.sequence } );
      }
      return all;
   }
   void asyncAnswer( U32 place, const String & error ) override {
      const TcamOperation operation = handedOver()[place];
      auto & pending = tcam_->pending();
      for ( U32 n = 0; n < pending.size(); ++n ) {
         if ( pending[n].priority == operation.priority ) {
            tcam_->finish( n, error );
            return;
         }
      }
      helper_->report( operation, error );
   }

   Ptr< SoftChip::SoftTcamHelper > helper_;
   Ptr< SoftChip::SoftTcam > tcam_;
   U64 versions_ = 0;
   std::map< U64, AsyncOperation > requests_,
         all_; // by version: not concluded yet, and all of them
   mutable std::vector< TcamOperation > operations_;
   Kiv::Listener< Acks::nextRouteToPassToPdAttr > passed_;
   Kiv::Listener< Acks::skippedPdRouteAttr > skipped_;
};

TEST( AsyncKit, TheWorkedExampleHasNoFindings ) {
   QonConformance::Options options;
   options.steps = 500;
   for ( auto contract : QonConformance::contracts() ) {
      // A state machine of the example has a TCAM of its own, which ends with it.
      if ( !String( contract->id ).starts_with( "async." ) ||
           String( contract->id ) == "async.successor" ) {
         continue;
      }
      options.only = contract->id;
      auto outcomes = QonConformance::runChecks(
            []( Kiv::TaskScheduler & scheduler ) {
               return std::make_unique< TcamChip >( scheduler );
            },
            options );
      ASSERT_EQ( outcomes.size(), 1u );
      for ( auto & finding : outcomes[0].findings ) {
         ADD_FAILURE() << finding.id << ": " << finding.did << "; expected " << finding.expected
                       << ", found " << finding.found;
      }
      EXPECT_EQ( outcomes[0].result, QonConformance::Outcome::Result::ok ) << outcomes[0].why;
   }
}

} // namespace
