// The full-screen quad that every program, converter pass and effect draws.
//
// Four corners in the order top-left, bottom-left, bottom-right, top-right,
// each position with z = w = 1, and the texture coordinates that map the
// whole texture onto them with (0, 0) at the bottom left. GLProgram::Draw()
// draws them as the two triangles (0, 1, 2) and (0, 2, 3).
//
//     prog->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
//     prog->SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
//     prog->Draw();
#ifndef POSTEFFECT_GL_GLQUAD_H
#define POSTEFFECT_GL_GLQUAD_H

#include <GLES2/gl2.h>

// Components per vertex of the two arrays, and the number of corners.
inline constexpr int g_nQuadPosSize = 4;
inline constexpr int g_nQuadTexCoordSize = 2;
inline constexpr int g_nQuadVertices = 4;

// (x, y, z, w) per corner.
inline constexpr GLfloat g_fQuadPos[g_nQuadVertices * g_nQuadPosSize] = {
    -1.0f, 1.0f,  1.0f, 1.0f,  // top left
    -1.0f, -1.0f, 1.0f, 1.0f,  // bottom left
    1.0f,  -1.0f, 1.0f, 1.0f,  // bottom right
    1.0f,  1.0f,  1.0f, 1.0f,  // top right
};

// (s, t) per corner, in the same order.
inline constexpr GLfloat g_fQuadTexCoord[g_nQuadVertices * g_nQuadTexCoordSize] = {
    0.0f, 1.0f,  // top left
    0.0f, 0.0f,  // bottom left
    1.0f, 0.0f,  // bottom right
    1.0f, 1.0f,  // top right
};

#endif
