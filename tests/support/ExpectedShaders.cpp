#include "support/ExpectedShaders.h"

#include <initializer_list>

namespace testing_support {

namespace {

const char* const header =
    "#version 130\n"
    "#extension GL_ARB_compatibility : enable\n";

const char* const pointSpriteVertexMain =
    "void main(void)\n"
    "{\n"
    " vec4 ecPosition4 = gl_ModelViewMatrix * gl_Vertex;\n"
    "   vec3 ecPosition3 = ecPosition4.xyz / ecPosition4.w;\n"
    "   //gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;\n"
    "   gl_Position = vec4(0,0,0,1);\n"
    "   gl_FrontColor = gl_Color;\n"
    " }\n";

const char* const lightingColorOutput = "smooth out vec4 lightingColor;\n";

const char* const tangentSpaceOutputs =
    "smooth out vec3 LightDirTanSpace;\n"
    "smooth out vec3 EyeDirTanSpace;\n"
    "smooth out float attenuation;\n";

const char* const tangentSpaceLightingFunctions =
    "  vec3 getNormal()\n"
    "  {\n"
    "     //Compute the normal \n"
    "     vec3 normal = gl_NormalMatrix * gl_Normal;\n"
    "     normal = normalize(normal);\n"
    "     return normal;\n"
    "  }\n"
    "  vec3 getTangent()\n"
    "  {\n"
    "      vec3 tangent;\n"
    "      vec3 c1 = cross(gl_Normal, vec3(0.0, 0.0, 1.0));\n"
    "      vec3 c2 = cross(gl_Normal, vec3(0.0, 1.0, 0.0));\n"
    "      if(length(c1) > length(c2))\n"
    "      {          tangent = c1;\n"
    "      }      else      {          tangent = c2;\n"
    "      }      tangent = normalize(tangent);\n"
    "      return tangent;\n"
    "  }\n"
    "  void createLightValues(vec3 ecPosition3)\n"
    "  {\n"
    "      // Bump-mapping.\n"
    "      // Get the normal, tangent, and binormal vectors.\n"
    "      vec3 n = getNormal();\n"
    "      vec3 t = getTangent();\n"
    "      vec3 b = cross(n, t);\n"
    "      vec3 lightDir = normalize(gl_LightSource[0].position.xyz - ecPosition3);\n"
    "      // calculate light attenuation\n"
    "      float d = length(gl_LightSource[0].position.xyz - ecPosition3);\n"
    "      attenuation = 1.0 / \n"
    "        (gl_LightSource[0].constantAttenuation + \n"
    "         gl_LightSource[0].linearAttenuation * d +  \n"
    "         gl_LightSource[0].quadraticAttenuation * d * d);\n"
    "      // Transform light direction to Tangent-Space.\n"
    "      LightDirTanSpace.x = dot(lightDir, t);\n"
    "      LightDirTanSpace.y = dot(lightDir, b);\n"
    "      LightDirTanSpace.z = dot(lightDir, n);\n"
    "      LightDirTanSpace = normalize(LightDirTanSpace);\n"
    "      EyeDirTanSpace.x = dot(-ecPosition3, t);\n"
    "      EyeDirTanSpace.y = dot(-ecPosition3, b);\n"
    "      EyeDirTanSpace.z = dot(-ecPosition3, n);\n"
    "      EyeDirTanSpace = normalize(EyeDirTanSpace);\n"
    "  }\n";

const char* const sunColorDeclarationsVertex =
    "uniform vec4 SunAmbient;\n"
    "uniform vec4 SunDiffuse;\n"
    "uniform vec4 SunSpecular;\n"
    "vec4 AmbientColor  = SunAmbient;\n"
    "vec4 DiffuseColor  = SunDiffuse;\n"
    "vec4 SpecularColor = SunSpecular;\n";

const char* const lightSourceColorDeclarations =
    "vec4 AmbientColor  = gl_LightSource[0].ambient;\n"
    "//vec4 AmbientColor  = vec4(1,1,1,1);\n"
    "vec4 DiffuseColor  = gl_LightSource[0].diffuse;\n"
    "vec4 SpecularColor = gl_LightSource[0].specular;\n";

const char* const perVertexLightingFunctions =
    "vec3 getNormal()\n"
    "{\n"
    "    //Compute the normal \n"
    "    vec3 normal = gl_NormalMatrix * gl_Normal;\n"
    "    normal = normalize(normal);\n"
    "    return normal;\n"
    "}\n"
    "vec4 getDiffuse(vec3 normal, vec3 lightDir)\n"
    "{\n"
    "   float d = max(0.0, dot(normal, lightDir));\n"
    "   return (gl_FrontMaterial.diffuse * (DiffuseColor * d));\n"
    "}\n"
    "\n"
    "vec3 getSpecular(vec3 lightDir, vec3 ecPosition3, vec3 eyeNormal, float shininess)\n"
    "{\n"
    "   vec3 reflection = reflect(-lightDir, eyeNormal);\n"
    "   float eyeReflectionAngle = max(0.0, dot(eyeNormal, reflection));\n"
    "   vec4 specular = gl_FrontMaterial.specular * SpecularColor;\n"
    "   float spec = pow(eyeReflectionAngle, shininess);\n"
    "   return specular.xyz * spec;\n"
    "}\n"
    "\n"
    "vec4 getAmbient()\n"
    "{\n"
    "   return gl_FrontMaterial.ambient * AmbientColor;\n"
    "}\n"
    "\n"
    "void createLightValues(in vec3 ecPosition3)\n"
    "{\n"
    "    vec3 normal = getNormal();\n"
    "    vec4 lightPosition4 = gl_LightSource[0].position;\n"
    "    vec3 lightPosition = lightPosition4.xyz;\n"
    "    \n"
    "    vec3 dir = normalize(lightPosition - ecPosition3);\n"
    "    // calculate light attenuation\n"
    "    float d = length(lightPosition - ecPosition3);\n"
    "    float attenuation = 1.0 / \n"
    "        (gl_LightSource[0].constantAttenuation + \n"
    "         gl_LightSource[0].linearAttenuation * d +  \n"
    "         gl_LightSource[0].quadraticAttenuation * d * d);\n"
    "    \n"
    "    vec4 color = getDiffuse(normal,dir) * attenuation;\n"
    "    \n"
    "    color +=  getAmbient() * attenuation;\n"
    "    \n"
    "    color.rgb += getSpecular(dir,ecPosition3,normal,128) * attenuation;\n"
    "      \n"
    "    lightingColor = clamp( color, 0.0, 1.0 );\n"
    "}\n";

const char* const vertexMainHead =
    "void main(void)\n"
    "{\n"
    "   vec4 ecPosition4 = gl_ModelViewMatrix * gl_Vertex;\n"
    "   vec3 ecPosition3 = ecPosition4.xyz / ecPosition4.w;\n"
    "   gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;\n"
    "   gl_FrontColor = gl_Color;\n";

const char* const lightingCall = "createLightValues(ecPosition3);\n";

const char* const pointSpriteFragmentMain =
    "void main(void)\n"
    "{\n"
    "   gl_FragColor = texture(BaseTexture0,gl_PointCoord) * gl_Color;\n"
    "}\n";

const char* const normalMapInputs =
    "uniform sampler2D NormalMapTex;\n"
    "smooth in vec3 LightDirTanSpace;\n"
    "smooth in vec3 EyeDirTanSpace;\n"
    "smooth in float attenuation;\n";

const char* const lightingColorInput = "smooth in vec4 lightingColor;\n";

const char* const sunUniformDeclarationsFragment =
    "uniform vec4 SunAmbient;\n"
    "uniform vec4 SunDiffuse;\n"
    "uniform vec4 SunSpecular;\n";

const char* const specularMapSampler = "uniform sampler2D SpecMapTex;\n";

const char* const shadowSampler = "uniform sampler2DShadow ShadowMapTex;\n";

const char* const overlayDeclarations =
    "uniform sampler2DShadow OverlayTex; \n"
    " \n"
    "uniform float y0; \n"
    " \n";

const char* const normalMappedLightFunctionHeadStart =
    "vec4 calculateLightColor(vec4 inputColor)\n"
    "{\n"
    "vec3 normalDir = normalize(\n"
    "    texture2D(NormalMapTex, gl_TexCoord[";

const char* const normalMappedLightFunctionHeadEnd = "].xy).xyz * 2.0 - 1.0);\n";

const char* const normalMappedLightFunctionBody =
    "vec4 vAmbient = AmbientColor * attenuation;\n"
    "float diffuse = max(dot(LightDirTanSpace, normalDir), 0.0);\n"
    "vec4 vDiffuse = DiffuseColor * diffuse * attenuation;\n"
    "float shininess = 0.8;\n"
    "vec3 ref = reflect(-LightDirTanSpace,normalDir); \n"
    "float d = dot(ref, EyeDirTanSpace);\n"
    "float specular = pow(clamp(d, 0.0, 1.0), shininess);\n"
    "vec4 vSpecular = SpecularColor * specular * attenuation;\n"
    "return ((vAmbient * inputColor) + (vDiffuse * inputColor) + (vSpecular * inputColor));\n"
    "}\n";

const char* const vertexColorLightFunction =
    "vec4 calculateLightColor(vec4 inputColor)\n"
    "{\n"
    "   return lightingColor;\n"
    "}\n";

const char* const fogFunction =
    "uniform float fogDensity;\n"
    "\n"
    "vec4 fog(vec4 color){\n"
    "    const float LOG2 = 1.442695;\n"
    "    vec4 fogColor = gl_LightSource[0].diffuse * vec4(1.0, 1.0, 1.0, 0.0);\n"
    "    float z = gl_FragCoord.z / gl_FragCoord.w;\n"
    "    float fogFactor = exp2(-fogDensity * fogDensity * z * z * LOG2);\n"
    "    fogFactor = clamp(fogFactor, 0.0, 1.0);\n"
    "    return mix(fogColor, color, fogFactor);\n"
    "}\n";

const char* const fragmentMainHead =
    "void main(void)\n"
    "{\n";

/** A stretch of text and whether it is there at all. */
struct Piece {
    bool present;
    std::string text;
};

std::string joined(std::initializer_list<Piece> pieces) {
    std::string text;
    for (const Piece& piece : pieces) {
        if (piece.present) text += piece.text;
    }
    return text;
}

/** The template once for each unit, every '#' replaced by the unit's number. */
std::string forUnits(const std::vector<int>& units, const std::string& unitTemplate) {
    std::string text;
    for (const int unit : units) {
        for (const char c : unitTemplate) text += c == '#' ? std::to_string(unit) : std::string(1, c);
    }
    return text;
}

std::string forUnit(int unit, const std::string& unitTemplate) {
    return forUnits({unit}, unitTemplate);
}

const char* const coordinateLine = "gl_TexCoord[#] = gl_MultiTexCoord#;\n";

const char* const projectedCoordinateLines =
    "gl_TexCoord[#] = gl_MultiTexCoord#;\n"
    "gl_TexCoord[#].s = dot(ecPosition4,gl_EyePlaneS[#]);\n"
    "gl_TexCoord[#].t = dot(ecPosition4,gl_EyePlaneT[#]);\n"
    "gl_TexCoord[#].p = dot(ecPosition4,gl_EyePlaneR[#]);\n"
    "gl_TexCoord[#].q = dot(ecPosition4,gl_EyePlaneQ[#]);\n";

const char* const baseSampler = "uniform sampler2D BaseTexture#;\n";
const char* const baseSampling = "color *=  texture2D( BaseTexture#, gl_TexCoord[#].xy );\n";
const char* const textSampling =
    "vec4 textureColor = texture2D( BaseTexture#, gl_TexCoord[#].xy );\n"
    "color.rgb = color.rgb + textureColor.rgb;\n"
    "color.a = color.a * textureColor.a;\n";
const char* const overlaySampling = "    vec4 overlay_color = shadow2DProj(OverlayTex, gl_TexCoord[#]);\n";
const char* const shadowSampling = "color *= .9 + shadow2DProj(ShadowMapTex, gl_TexCoord[#]);\n";

bool usesNormalMap(const sceneutils::ShaderFeatures& record, const RunSettings& run) {
    return run.normalMapping && record.normalMapUnit != -1;
}

std::string startColor(const sceneutils::ShaderFeatures& record) {
    const bool white = !record.text && !record.textureUnits.empty();
    return white ? "vec4 color = vec4(1,1,1,1);\n" : "vec4 color = gl_Color;\n";
}

}  // namespace

std::string expectedProgramName(const sceneutils::ShaderFeatures& record) {
    return joined({
        {true, "shader_t"},
        {true, forUnits(record.textureUnits, "#")},
        {record.normalMapping && record.normalMapUnit != -1, forUnit(record.normalMapUnit, "_nm#")},
        {record.specMapUnit != -1, forUnit(record.specMapUnit, "_sm#")},
        {record.shadowUnit != -1, forUnit(record.shadowUnit, "_shadow#")},
        {record.overlayUnit != -1, forUnit(record.overlayUnit, "_overlay#")},
        {record.lighting, "_lighting"},
        {record.fog, "_fog"},
        {record.text, "_text"},
        {record.pointSprite, "_ps"},
    });
}

std::string expectedVertexText(const sceneutils::ShaderFeatures& record, const RunSettings& run) {
    if (record.pointSprite) return std::string(header) + pointSpriteVertexMain;

    const bool tangentSpace = run.lighting && usesNormalMap(record, run);
    const bool perVertex = run.lighting && !usesNormalMap(record, run);
    return joined({
        {true, header},
        {tangentSpace, tangentSpaceOutputs},
        {tangentSpace, tangentSpaceLightingFunctions},
        {perVertex, lightingColorOutput},
        {perVertex && !record.sunUniforms, lightSourceColorDeclarations},
        {perVertex && record.sunUniforms, sunColorDeclarationsVertex},
        {perVertex, perVertexLightingFunctions},
        {true, vertexMainHead},
        {true, forUnits(record.textureUnits, coordinateLine)},
        {usesNormalMap(record, run), forUnit(record.normalMapUnit, coordinateLine)},
        {record.specMapUnit != -1, forUnit(record.specMapUnit, coordinateLine)},
        {run.shadowUnit != -1, forUnit(run.shadowUnit, projectedCoordinateLines)},
        {record.overlayUnit != -1, forUnit(record.overlayUnit, projectedCoordinateLines)},
        {run.lighting, lightingCall},
        {true, "}"},
    });
}

std::string expectedFragmentText(const sceneutils::ShaderFeatures& record, const RunSettings& run) {
    const std::string declarations = header + forUnits(record.textureUnits, baseSampler);
    if (record.pointSprite) return declarations + pointSpriteFragmentMain;

    const bool normalMap = run.lighting && usesNormalMap(record, run);
    const bool vertexColor = run.lighting && !usesNormalMap(record, run);
    return joined({
        {true, declarations},
        {normalMap, normalMapInputs},
        {vertexColor, lightingColorInput},
        {run.lighting && record.sunUniforms, sunUniformDeclarationsFragment},
        {record.specMapUnit != -1, specularMapSampler},
        {run.shadowUnit != -1, shadowSampler},
        {record.overlayUnit != -1, overlayDeclarations},
        {normalMap, normalMappedLightFunctionHeadStart},
        {normalMap, std::to_string(record.normalMapUnit)},
        {normalMap, normalMappedLightFunctionHeadEnd},
        {normalMap && !record.sunUniforms, lightSourceColorDeclarations},
        {normalMap, normalMappedLightFunctionBody},
        {vertexColor, vertexColorLightFunction},
        {run.fog, fogFunction},
        {true, fragmentMainHead},
        {true, startColor(record)},
        {record.text, forUnit(0, textSampling)},
        {!record.text, forUnits(record.textureUnits, baseSampling)},
        {run.lighting, "color *= calculateLightColor(vec4(1,1,1,1));\n"},
        {record.overlayUnit != -1, forUnit(record.overlayUnit, overlaySampling)},
        {run.shadowUnit != -1, forUnit(run.shadowUnit, shadowSampling)},
        {run.fog, "color = fog(color);"},
        {true, "gl_FragColor = color;}\n"},
    });
}

}  // namespace testing_support
