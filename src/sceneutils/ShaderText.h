#pragma once

/**
 * The fixed pieces of the generated GLSL programs. ShaderGenerator picks from them and joins them; nothing here decides
 * anything. They are an output format: saved and cached programs are compared with them to the character, odd blanks
 * and unused lines included.
 */
namespace veltrane::sceneutils::shadertext {

extern const char* const header;
extern const char* const pointSpriteVertexMain;
extern const char* const lightingColorOutput;
extern const char* const tangentSpaceOutputs;
extern const char* const tangentSpaceLightingFunctions;
extern const char* const sunColorDeclarations;
extern const char* const lightSourceColorDeclarations;
extern const char* const perVertexLightingFunctions;
extern const char* const vertexMainHead;
extern const char* const lightingCall;
extern const char* const pointSpriteFragmentMain;
extern const char* const normalMapInputs;
extern const char* const lightingColorInput;
extern const char* const sunUniformDeclarations;
extern const char* const specularMapSampler;
extern const char* const shadowSampler;
extern const char* const overlayDeclarations;
extern const char* const normalMappedLightFunctionHeadBeforeUnit;
extern const char* const normalMappedLightFunctionHeadAfterUnit;
extern const char* const normalMappedLightFunctionBody;
extern const char* const vertexColorLightFunction;
extern const char* const fogFunction;
extern const char* const fragmentMainHead;

}  // namespace veltrane::sceneutils::shadertext
