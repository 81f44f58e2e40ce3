#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"

#include "Qon/vlanmapping/VlanMapping2Trace.h"

namespace Qon::VlanMapping {

Flintlog::Facility facility( "QonVlanMappingSm2" );
VlanMappingLog messages( "QonVlanMappingSm2" );

VlanMappingSm2::VlanMappingSm2( Inputs inputs ) : in_( std::move( inputs ) ) {
   auto output = [this]( ConfigSource source, auto & state ) {
      return SourceOutput( source, in_.sourceConfigDir, state );
   };
   status_ = nullptr;
   merge_ = smIs< ConfigMergeSm >(
         ConfigMergeSm::Inputs{ in_.acsd,
                                in_.bridgingConfig,
                                in_.sourceConfigDir,
                                { in_.bridgingConfigOutputState, in_.qonFlowConfigOutputState,
                                  in_.nativeVlanConfigOutputState },
                                in_.mergedConfig,
                                in_.scheduler } );
   lagResolution_ =
         smIs< LagResolutionSm >( in_.mergedConfig, in_.programmedPortToLag, in_.platformConfig );
   interlock_ = smIs< LagInterlockSm >( in_.acsd, in_.mergedConfig, in_.interlock );
   status_ = smIs< PlatformStatusSm >( in_.mergedConfig, lagResolution_, in_.platformStatus,
                                       in_.sourceStatusDir );
   bridging_ = smIs< BridgingConfigSm >(
         in_.bridgingConfig, output( ConfigSource::bridging, in_.bridgingConfigOutputState ),
         in_.scheduler );
   flow_ = smIs< QonFlowConfigSm >( in_.flowVlanXlateConfigDir,
                                    output( ConfigSource::flow, in_.qonFlowConfigOutputState ),
                                    in_.scheduler );
   native_ = smIs< NativeVlanConfigSm >(
         in_.bridgingConfig, output( ConfigSource::nativeVlan, in_.nativeVlanConfigOutputState ),
         in_.scheduler );
}

void
VlanMappingSm2::handleInitialized() {
   Velto::FirstError error;
   if ( initialized() ) {
      if ( !started_ ) {
         VELTO_ASSERT( !platformVlanMappingStatus()->ready() ); // fixed text
         started_ = true;
      }
      for ( auto & state : { in_.bridgingConfigOutputState, in_.qonFlowConfigOutputState,
                             in_.nativeVlanConfigOutputState } ) {
         // As a former run left it, or before a pause.
         error.run( [&] { state->readyIs( false ); } );
      }
   }
   const bool on = initialized();
   // Who reads comes before who writes.
   error.run( [&] { lagResolution_->initializedIs( on ); } );
   error.run( [&] { interlock_->initializedIs( on ); } );
   error.run( [&] { status_->initializedIs( on ); } );
   error.run( [&] { merge_->initializedIs( on ); } );
   error.run( [&] { bridging_->initializedIs( on ); } );
   error.run( [&] { flow_->initializedIs( on ); } );
   error.run( [&] { native_->initializedIs( on ); } );
   error.pass();
}

void
VlanMappingSm2::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   for ( QonBaseSm * stage : std::initializer_list< QonBaseSm * >{
               merge_.ptr(), lagResolution_.ptr(), interlock_.ptr(), status_.ptr(), bridging_.ptr(),
               flow_.ptr(), native_.ptr() } ) {
      stage->kivDoZombieReactors();
   }
}

String
VlanMappingSm2::checkInvariants() const {
   const String wrong = merge_->checkInvariants();
   return wrong.empty() ? lagResolution_->checkInvariants() : wrong;
}

Velto::Ptr< VlanMappingSm2 >
VlanMappingSm2Is( VlanMappingSm2::Inputs inputs ) {
   return smIs< VlanMappingSm2 >( std::move( inputs ) );
}

} // namespace Qon::VlanMapping
