#include "html.h"

namespace mgmtd
{

const char kStyle[] =
    R"css(:root{--ink:#1d2733;--soft:#5b6875;--line:#d5dce3;--back:#f4f6f8;--card:#fff;--blue:#0b5cad;
--warn:#fff3d6;--warn-line:#d9a400;--add:#e3f5e6;--del:#fde7e7;--mod:#e6f0fb}
@media(prefers-color-scheme:dark){:root{--ink:#e4e9ee;--soft:#9aa8b5;--line:#36424e;--back:#151b21;--card:#1e262e;
--blue:#7db7f2;--warn:#3d3214;--warn-line:#b98b00;--add:#173822;--del:#45201f;--mod:#1b3149}}
*{box-sizing:border-box}
html{-webkit-text-size-adjust:100%}
body{margin:0;background:var(--back);color:var(--ink);font:16px/1.45 system-ui,"Segoe UI",Roboto,sans-serif}
a{color:var(--blue)}
a:focus-visible,button:focus-visible,input:focus-visible,select:focus-visible,textarea:focus-visible
{outline:3px solid var(--blue);outline-offset:2px}
.skip{position:absolute;left:-99em}
.skip:focus{left:1em;top:.5em;background:var(--card);padding:.5em;z-index:9}
header{background:var(--card);border-bottom:1px solid var(--line);padding:.6em 1em;display:flex;flex-wrap:wrap;gap:.5em 1.2em;
align-items:center}
header .brand{font-weight:700;color:inherit;text-decoration:none;overflow-wrap:anywhere}
header nav{display:flex;gap:.2em .6em;flex-wrap:wrap;font-size:.93em}
@media(min-width:42em){header nav{gap:.2em 1em;font-size:1em}}
header form{display:flex;gap:.4em;flex:1 1 14em;min-width:0;max-width:26em;margin-left:auto}
header input{flex:1;min-width:0;width:100%}
.bar{position:sticky;top:0;z-index:5;background:var(--card);border-bottom:1px solid var(--line);padding:.45em 1em;display:flex;
flex-wrap:wrap;gap:.3em .9em;align-items:center}
.bar.pending{background:var(--warn);border-color:var(--warn-line)}
.bar form{margin:0}
.page{display:grid;grid-template-columns:minmax(0,1fr);gap:1em;padding:1em;max-width:80em;margin:0 auto}
.side h2{color:var(--soft)}
@media(min-width:60em){.page.two{grid-template-columns:13em minmax(0,1fr)}.side{grid-column:1;grid-row:1}main{grid-column:-2}
.narrow,.side h2{display:none}}
.side ul{list-style:none;margin:0;padding:0}
.side a{display:block;padding:.3em .6em;border-radius:.4em;text-decoration:none;overflow-wrap:anywhere}
.side a:hover,.side a[aria-current]{background:var(--card)}
.side a[aria-current]{font-weight:700}
h1{font-size:1.4em;margin:.1em 0 .6em;overflow-wrap:anywhere}
h2{font-size:1.05em;margin:0 0 .5em;overflow-wrap:anywhere}
.crumbs{color:var(--soft);font-size:.92em;overflow-wrap:anywhere}
.card{background:var(--card);border:1px solid var(--line);border-radius:.5em;padding:.9em 1em;margin:0 0 1em}
.card>:last-child{margin-bottom:0}
.grid{display:grid;grid-template-columns:repeat(auto-fill,minmax(11em,1fr));gap:.7em}
.grid a{background:var(--card);border:1px solid var(--line);border-radius:.5em;padding:.7em .8em;text-decoration:none;
overflow-wrap:anywhere}
.grid small,.note{color:var(--soft)}
.grid small{display:block}
.row{display:grid;grid-template-columns:minmax(0,1fr);gap:.15em .8em;padding:.35em 0;align-items:center;
overflow-wrap:anywhere}
@media(min-width:42em){.row{grid-template-columns:minmax(9em,15em) minmax(0,1fr)}}
label{overflow-wrap:anywhere;color:var(--soft)}
input,select,textarea,button{font:inherit;color:inherit;background:var(--card);border:1px solid var(--soft);border-radius:.35em;
padding:.38em .55em;max-width:100%}
.row input,.row textarea{width:100%;max-width:34em}
.row select{justify-self:start;min-width:8em}
:disabled{opacity:.75;background:var(--back)}
button{background:var(--blue);border-color:var(--blue);color:#fff;cursor:pointer;min-height:2.4em}
@media(prefers-color-scheme:dark){button{color:#10161c}}
button.plain{background:none;color:var(--blue)}
.acts{display:flex;flex-wrap:wrap;gap:.6em;align-items:center;margin-top:.7em}
pre{margin:0;overflow-x:auto;font:13px/1.5 ui-monospace,Menlo,Consolas,monospace;white-space:pre-wrap;overflow-wrap:anywhere}
pre span{display:block;padding:0 .4em;word-break:break-all}
.a{background:var(--add)}.d{background:var(--del)}.m{background:var(--mod)}
.msg{border-left:4px solid var(--warn-line);background:var(--warn);padding:.6em .9em;margin:0 0 1em;overflow-wrap:anywhere}
code{overflow-wrap:anywhere}
)css";

} // namespace mgmtd
